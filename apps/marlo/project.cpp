// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/project.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <SQLiteCpp/VariadicBind.h>
#include <sqlite3.h>

#include <Eigen/LU>
#include <QFileInfo>
#include <QLockFile>
#include <QString>
#include <QUrl>
#include <bit>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <type_traits>
#include <utility>

namespace marlo::app {
namespace {

static_assert(std::endian::native == std::endian::little,
              "the database's numbers are little-endian");

constexpr int kFormat = 1;  // of this program's own tables
constexpr std::int64_t kPairFactor = 2147483647;
// COLMAP's camera models and their parameters.
constexpr int kSimpleRadial = 2;      // focal length, centre, one distortion
constexpr int kEquirectangular = 17;  // width, height; COLMAP 4.1 and later
constexpr int kLongestBlob = 1'000'000'000;
constexpr int kMostColumns = 128;  // of rows: SIFT's
static_assert(kMostKeypoints * kMostColumns * sizeof(float) <= kLongestBlob);

// COLMAP 3.8's tables, which later versions upgrade when they open the file.
constexpr const char* kColmapTables = R"(
CREATE TABLE IF NOT EXISTS cameras(
    camera_id INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL, model INTEGER NOT NULL,
    width INTEGER NOT NULL, height INTEGER NOT NULL, params BLOB,
    prior_focal_length INTEGER NOT NULL);
CREATE TABLE IF NOT EXISTS images(
    image_id INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL, name TEXT NOT NULL UNIQUE,
    camera_id INTEGER NOT NULL, prior_qw REAL, prior_qx REAL, prior_qy REAL, prior_qz REAL,
    prior_tx REAL, prior_ty REAL, prior_tz REAL,
    CONSTRAINT image_id_check CHECK(image_id >= 0 and image_id < 2147483647),
    FOREIGN KEY(camera_id) REFERENCES cameras(camera_id));
CREATE UNIQUE INDEX IF NOT EXISTS index_name ON images(name);
CREATE TABLE IF NOT EXISTS keypoints(
    image_id INTEGER PRIMARY KEY NOT NULL, rows INTEGER NOT NULL, cols INTEGER NOT NULL, data BLOB,
    FOREIGN KEY(image_id) REFERENCES images(image_id) ON DELETE CASCADE);
CREATE TABLE IF NOT EXISTS descriptors(
    image_id INTEGER PRIMARY KEY NOT NULL, rows INTEGER NOT NULL, cols INTEGER NOT NULL, data BLOB,
    FOREIGN KEY(image_id) REFERENCES images(image_id) ON DELETE CASCADE);
CREATE TABLE IF NOT EXISTS matches(
    pair_id INTEGER PRIMARY KEY NOT NULL, rows INTEGER NOT NULL, cols INTEGER NOT NULL, data BLOB);
CREATE TABLE IF NOT EXISTS two_view_geometries(
    pair_id INTEGER PRIMARY KEY NOT NULL, rows INTEGER NOT NULL, cols INTEGER NOT NULL, data BLOB,
    config INTEGER NOT NULL, F BLOB, E BLOB, H BLOB, qvec BLOB, tvec BLOB);
)";

constexpr const char* kOwnTables = R"(
CREATE TABLE IF NOT EXISTS marlo_settings(key TEXT PRIMARY KEY NOT NULL, value TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS marlo_photographs(
    image_id INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL, name TEXT NOT NULL UNIQUE,
    status TEXT NOT NULL, reason TEXT NOT NULL, stamp TEXT NOT NULL, width INTEGER NOT NULL,
    height INTEGER NOT NULL, keypoints INTEGER NOT NULL, seconds REAL NOT NULL);
CREATE TABLE IF NOT EXISTS marlo_cameras(
    camera_id INTEGER PRIMARY KEY NOT NULL, width INTEGER NOT NULL, height INTEGER NOT NULL,
    focal_length REAL NOT NULL, known INTEGER NOT NULL, device TEXT NOT NULL,
    FOREIGN KEY(camera_id) REFERENCES cameras(camera_id) ON DELETE CASCADE);
CREATE TABLE IF NOT EXISTS marlo_features(
    image_id INTEGER PRIMARY KEY NOT NULL, rows INTEGER NOT NULL, keypoints BLOB NOT NULL,
    type INTEGER NOT NULL, cols INTEGER NOT NULL, data BLOB NOT NULL,
    FOREIGN KEY(image_id) REFERENCES images(image_id) ON DELETE CASCADE);
CREATE TABLE IF NOT EXISTS marlo_pairs(
    pair_id INTEGER PRIMARY KEY NOT NULL, first INTEGER NOT NULL, second INTEGER NOT NULL,
    scores BLOB, match_stamp TEXT NOT NULL, verify_stamp TEXT NOT NULL);
)";

std::int64_t pairId(std::int64_t first, std::int64_t second) {
    if (first >= second) throw std::invalid_argument("a pair needs first < second");
    return kPairFactor * first + second;
}

std::string text(PhotographStatus status) {
    switch (status) {
        case PhotographStatus::done:
            return "done";
        case PhotographStatus::failed:
            return "failed";
        case PhotographStatus::waiting:
            break;
    }
    return "waiting";
}

PhotographStatus statusOf(const std::string& name) {
    if (name == "done") return PhotographStatus::done;
    return name == "failed" ? PhotographStatus::failed : PhotographStatus::waiting;
}

void bindBlob(SQLite::Statement& statement, int index, const void* data, std::size_t bytes) {
    if (bytes > kLongestBlob) {
        throw OutOfSpace("An entry of the database would take " + std::to_string(bytes) +
                         " bytes, more than the 1,000,000,000 that it can hold.");
    }
    statement.bindNoCopy(index, bytes == 0 ? "" : data, static_cast<int>(bytes));
}

template <typename Element>
void bindArray(SQLite::Statement& statement, int index, const std::vector<Element>& elements) {
    static_assert(std::is_trivially_copyable_v<Element>);
    bindBlob(statement, index, elements.data(), elements.size() * sizeof(Element));
}

template <typename Element>
std::vector<Element> arrayOf(const SQLite::Column& column) {
    std::vector<Element> elements(static_cast<std::size_t>(column.getBytes()) / sizeof(Element));
    if (!elements.empty()) {
        std::memcpy(elements.data(), column.getBlob(), elements.size() * sizeof(Element));
    }
    return elements;
}

// A keypoint as it is stored: its fields, and two bytes of zero.
struct StoredKeypoint {
    float x, y, scale, angle, response;
    std::uint8_t octave, layer, zeros[2];
};
static_assert(sizeof(StoredKeypoint) == 24);

std::vector<StoredKeypoint> stored(const std::vector<Keypoint>& keypoints) {
    std::vector<StoredKeypoint> all;
    all.reserve(keypoints.size());
    for (const Keypoint& k : keypoints) {
        all.push_back({k.x, k.y, k.scale, k.angle, k.response, k.octave, k.layer, {0, 0}});
    }
    return all;
}

std::vector<Keypoint> restored(const std::vector<StoredKeypoint>& all) {
    std::vector<Keypoint> keypoints;
    keypoints.reserve(all.size());
    for (const StoredKeypoint& k : all) {
        keypoints.emplace_back(k.x, k.y, k.scale, k.angle, k.response, k.octave, k.layer);
    }
    return keypoints;
}

// x, y, scale, orientation; COLMAP's angles run clockwise as displayed.
std::vector<float> colmapKeypoints(const std::vector<Keypoint>& keypoints) {
    constexpr auto corner = static_cast<float>(kColmapPixelCorner);
    std::vector<float> all;
    all.reserve(4 * keypoints.size());
    for (const Keypoint& k : keypoints) {
        all.insert(all.end(), {k.x + corner, k.y + corner, k.scale, 0.0F - k.angle});
    }
    return all;
}

std::vector<unsigned char> packed(const DescMat& rows) {
    const std::size_t rowBytes = static_cast<std::size_t>(rows.cols) * rows.elemSizeBytes();
    std::vector<unsigned char> bytes(static_cast<std::size_t>(rows.rows) * rowBytes);
    for (int i = 0; i < rows.rows; ++i) {
        std::memcpy(bytes.data() + static_cast<std::size_t>(i) * rowBytes,
                    rows.data + static_cast<std::size_t>(i) * rows.step, rowBytes);
    }
    return bytes;
}

// Moves a geometry between pixel frames: `corner` is where the new frame has the old one's origin.
Eigen::Matrix3d shift(double corner) {
    Eigen::Matrix3d matrix = Eigen::Matrix3d::Identity();
    matrix(0, 2) = corner;
    matrix(1, 2) = corner;
    return matrix;
}
Eigen::Matrix3d shiftedFundamental(const Eigen::Matrix3d& matrix, double corner) {
    return shift(-corner).transpose() * matrix * shift(-corner);
}
Eigen::Matrix3d shiftedHomography(const Eigen::Matrix3d& matrix, double corner) {
    return shift(corner) * matrix * shift(-corner);
}

void bindMatrix(SQLite::Statement& statement, int index, const Eigen::Matrix3d& matrix) {
    const Eigen::Matrix<double, 3, 3, Eigen::RowMajor> rows = matrix;
    statement.bind(index, rows.data(), 9 * sizeof(double));
}

Eigen::Matrix3d matrixOf(const SQLite::Column& column) {
    if (column.getBytes() != 9 * sizeof(double)) return Eigen::Matrix3d::Zero();
    Eigen::Matrix<double, 3, 3, Eigen::RowMajor> rows;
    std::memcpy(rows.data(), column.getBlob(), 9 * sizeof(double));
    return rows;
}

MatchList matchListOf(const SQLite::Column& column) {
    const auto count = column.getBytes() / static_cast<int>(2 * sizeof(std::uint32_t));
    MatchList matches(count, 2);
    if (count > 0) {
        std::memcpy(matches.data(), column.getBlob(),
                    static_cast<std::size_t>(matches.size()) * sizeof(std::uint32_t));
    }
    return matches;
}

void bindMatches(SQLite::Statement& statement, int index, const MatchList& matches) {
    bindBlob(statement, index, matches.data(),
             static_cast<std::size_t>(matches.size()) * sizeof(std::uint32_t));
}

}  // namespace

struct Project::State {
    std::filesystem::path folder;
    std::unique_ptr<QLockFile> lock;
    std::unique_ptr<SQLite::Database> database;

    [[nodiscard]] std::string file() const { return (folder / "database.db").string(); }

    // Runs what touches the database; what SQLite says becomes an error that helps.
    template <typename Work>
    auto run(const Work& work) const {
        try {
            return work(*database);
        } catch (const SQLite::Exception& error) {
            rethrow(error);
        }
    }

    [[noreturn]] void rethrow(const SQLite::Exception& error) const {
        const std::string what = file() + ": " + error.what();
        switch (error.getErrorCode()) {
            case SQLITE_FULL:
                throw OutOfSpace(what +
                                 ". Free some disk space and run the command again: it goes "
                                 "on where it stopped.");
            case SQLITE_IOERR:
                throw OutOfSpace(what + ". The disk may be full or failing.");
            case SQLITE_NOMEM:
            case SQLITE_TOOBIG:
                throw OutOfSpace(what);
            case SQLITE_NOTADB:
            case SQLITE_CORRUPT:
                throw ProjectError(what + ". Move the file away to begin anew.");
            case SQLITE_READONLY:
            case SQLITE_CANTOPEN:
            case SQLITE_PERM:
                throw ProjectError(what + ". Is the folder writable?");
            case SQLITE_BUSY:
            case SQLITE_LOCKED:
                throw ProjectError(what +
                                   ". Another program is working on it; try again when it "
                                   "has finished.");
            default:
                throw ProjectError(what);
        }
    }

    [[noreturn]] void throwNoFeatures(std::int64_t id) const {
        throw ProjectError(file() + " has no features of photograph " + std::to_string(id) + ".");
    }

    // Everything that `work` does, or nothing.
    template <typename Work>
    void transaction(const Work& work) const {
        run([&](SQLite::Database& db) {
            SQLite::Transaction whole(db, SQLite::TransactionBehavior::IMMEDIATE);
            work(db);
            whole.commit();
        });
    }

    void takeLock() {
        std::error_code error;
        std::filesystem::create_directories(folder, error);
        if (error) {
            const std::string what =
                "Cannot make the folder " + folder.string() + ": " + error.message() + ".";
            if (error == std::errc::no_space_on_device) throw OutOfSpace(what);
            throw ProjectError(what);
        }
        const std::string path = (folder / "marlo.lock").string();
        lock = std::make_unique<QLockFile>(QString::fromStdString(path));
        lock->setStaleLockTime(0);  // stale once its process is gone, however long it takes
        if (lock->tryLock(0)) return;
        qint64 process = 0;
        QString host;
        QString program;
        if (lock->error() == QLockFile::LockFailedError &&
            lock->getLockInfo(&process, &host, &program)) {
            throw ProjectError("Another marlo (process " + std::to_string(process) + " on " +
                               host.toStdString() + ") works on the project " + folder.string() +
                               ". Wait until it has finished, or use another folder (-o). If none "
                               "is running there, delete marlo.lock.");
        }
        constexpr std::uintmax_t kLittle = 1 << 16;
        const std::filesystem::space_info space = std::filesystem::space(folder, error);
        if (!error && space.available < kLittle) {
            throw OutOfSpace("There is no space left for the project " + folder.string() + ".");
        }
        throw ProjectError("Cannot write in the folder " + folder.string() +
                           ": no lock file could be made. Is it writable, and is there space?");
    }

    void checkOwner(SQLite::Database& db) const {
        if (!db.tableExists("marlo_settings")) {
            const int tables =
                db.execAndGet("SELECT COUNT(*) FROM sqlite_master WHERE type = 'table'").getInt();
            if (tables > 0) {
                throw ProjectError(file() +
                                   " was made by another program. Use another folder, or "
                                   "move the file away.");
            }
            return;
        }
        SQLite::Statement format(db, "SELECT value FROM marlo_settings WHERE key = 'format'");
        const std::string found = format.executeStep() ? format.getColumn(0).getString() : "none";
        if (found != std::to_string(kFormat)) {
            throw ProjectError(file() + " has the format " + found +
                               ", and this marlo works with " + std::to_string(kFormat) +
                               " only. Use the version that made it, or another folder.");
        }
    }

    void openDatabase(const std::string& name, int flags) {
        constexpr int kPatience = 10'000;  // milliseconds
        database = std::make_unique<SQLite::Database>(name, flags, kPatience);
        checkOwner(*database);
    }

    void openForReading() {
        try {
            openDatabase(file(), SQLite::OPEN_READONLY);
        } catch (const SQLite::Exception& error) {
            // Readers, too, write beside the database, which a read-only folder forbids. Nothing
            // that waits to be taken over says that nobody is changing it.
            const bool forbidden =
                error.getErrorCode() == SQLITE_CANTOPEN || error.getErrorCode() == SQLITE_READONLY;
            std::error_code none;
            const std::uintmax_t waiting = std::filesystem::file_size(file() + "-wal", none);
            if (!forbidden || (!none && waiting > 0)) throw;
            const QFileInfo place(QString::fromStdString(file()));
            const QByteArray uri = QUrl::fromLocalFile(place.absoluteFilePath()).toEncoded();
            openDatabase(uri.toStdString() + "?immutable=1",
                         SQLite::OPEN_READONLY | SQLite::OPEN_URI);
        }
    }

    void open(Access access) {
        const bool write = access != Access::read;
        if (access != Access::write && !std::filesystem::exists(file())) {
            throw ProjectError("There is no project in " + folder.string() +
                               ": database.db is missing. Begin with `marlo extract PHOTOS -o " +
                               folder.string() + "`.");
        }
        if (write) takeLock();
        try {
            if (!write) return openForReading();
            openDatabase(file(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
            database->exec("PRAGMA foreign_keys = ON");
            // A reader never waits, and a killed process leaves whole transactions.
            database->exec("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL");
            SQLite::Transaction whole(*database);
            // A later COLMAP may have upgraded its tables, and says so there.
            if (!database->tableExists("images")) database->exec("PRAGMA user_version = 3800");
            database->exec(kColmapTables);
            database->exec(kOwnTables);
            database->exec("INSERT OR IGNORE INTO marlo_settings VALUES('format', '" +
                           std::to_string(kFormat) + "')");
            whole.commit();
        } catch (const SQLite::Exception& error) {
            rethrow(error);
        }
    }

    static std::int64_t cameraId(SQLite::Database& db, const Camera& camera) {
        SQLite::Statement find(db,
                               "SELECT camera_id FROM marlo_cameras WHERE width = ? AND height = ? "
                               "AND focal_length = ? AND known = ? AND device = ?");
        SQLite::bind(find, camera.width, camera.height, camera.focalLength,
                     static_cast<int>(camera.focalLengthKnown), camera.device);
        if (!camera.device.empty() && find.executeStep()) return find.getColumn(0).getInt64();
        const std::vector<double> params =
            camera.isPanorama() ? std::vector<double>{static_cast<double>(camera.width),
                                                      static_cast<double>(camera.height)}
                                : std::vector<double>{camera.focalLength, camera.width / 2.0,
                                                      camera.height / 2.0, 0.0};
        SQLite::Statement add(db,
                              "INSERT INTO cameras(model, width, height, params, "
                              "prior_focal_length) VALUES(?, ?, ?, ?, ?)");
        add.bind(1, camera.isPanorama() ? kEquirectangular : kSimpleRadial);
        add.bind(2, camera.width);
        add.bind(3, camera.height);
        add.bind(4, params.data(), static_cast<int>(params.size() * sizeof(double)));
        add.bind(5, static_cast<int>(camera.focalLengthKnown));
        add.exec();
        const std::int64_t id = db.getLastInsertRowid();
        SQLite::Statement own(db, "INSERT INTO marlo_cameras VALUES(?, ?, ?, ?, ?, ?)");
        SQLite::bind(own, id, camera.width, camera.height, camera.focalLength,
                     static_cast<int>(camera.focalLengthKnown), camera.device);
        own.exec();
        return id;
    }

    // Removes a photograph's features and what depends on them.
    static void forget(SQLite::Database& db, std::int64_t image) {
        if (db.tableExists("frames")) {
            throw ProjectError(
                "A later COLMAP has made rigs and frames in this database, which would not fit "
                "photographs that are added, replaced or removed. Use another project folder.");
        }
        // By the ids themselves: COLMAP's own matcher may have added pairs.
        const std::string id = std::to_string(image);
        const std::string factor = std::to_string(kPairFactor);
        for (const char* table : {"matches", "two_view_geometries", "marlo_pairs"}) {
            db.exec("DELETE FROM " + std::string(table) + " WHERE pair_id / " + factor + " = " +
                    id + " OR pair_id % " + factor + " = " + id);
        }
        db.exec("DELETE FROM images WHERE image_id = " + std::to_string(image));
        db.exec("DELETE FROM cameras WHERE camera_id NOT IN (SELECT camera_id FROM images)");
    }

    static void putStatus(SQLite::Database& db, const Photograph& photograph) {
        SQLite::Statement put(
            db,
            "UPDATE marlo_photographs SET status = ?, reason = ?, stamp = ?, "
            "width = ?, height = ?, keypoints = ?, seconds = ? WHERE image_id = ?");
        SQLite::bind(put, text(photograph.status), photograph.reason, photograph.stamp,
                     photograph.width, photograph.height, photograph.keypoints, photograph.seconds,
                     photograph.id);
        put.exec();
    }

    static std::vector<Photograph> photographs(SQLite::Database& db, const std::string& condition,
                                               const std::string& value) {
        SQLite::Statement all(db,
                              "SELECT image_id, name, status, reason, stamp, width, height, "
                              "keypoints, seconds FROM marlo_photographs " +
                                  condition + " ORDER BY image_id");
        if (!condition.empty()) all.bind(1, value);
        std::vector<Photograph> found;
        while (all.executeStep()) {
            Photograph photograph;
            photograph.id = all.getColumn(0).getInt64();
            photograph.name = all.getColumn(1).getString();
            photograph.status = statusOf(all.getColumn(2).getString());
            photograph.reason = all.getColumn(3).getString();
            photograph.stamp = all.getColumn(4).getString();
            photograph.width = all.getColumn(5).getInt();
            photograph.height = all.getColumn(6).getInt();
            photograph.keypoints = all.getColumn(7).getInt();
            photograph.seconds = all.getColumn(8).getDouble();
            found.push_back(std::move(photograph));
        }
        return found;
    }
};

Project::Project(const std::filesystem::path& folder, Access access)
    : state_(std::make_unique<State>()) {
    state_->folder = folder;
    state_->open(access);
}
Project::~Project() = default;
Project::Project(Project&&) noexcept = default;
Project& Project::operator=(Project&&) noexcept = default;

const std::filesystem::path& Project::folder() const {
    return state_->folder;
}

std::optional<std::string> Project::setting(const std::string& key) const {
    return state_->run([&](SQLite::Database& db) -> std::optional<std::string> {
        SQLite::Statement get(db, "SELECT value FROM marlo_settings WHERE key = ?");
        get.bind(1, key);
        if (!get.executeStep()) return std::nullopt;
        return get.getColumn(0).getString();
    });
}

void Project::putSetting(const std::string& key, const std::string& value) {
    state_->transaction([&](SQLite::Database& db) {
        SQLite::Statement put(db, "INSERT OR REPLACE INTO marlo_settings VALUES(?, ?)");
        SQLite::bind(put, key, value);
        put.exec();
    });
}

std::vector<Photograph> Project::addPhotographs(const std::vector<std::string>& names) {
    state_->transaction([&](SQLite::Database& db) {
        SQLite::Statement add(db,
                              "INSERT OR IGNORE INTO marlo_photographs "
                              "VALUES(NULL, ?, 'waiting', '', '', 0, 0, 0, 0)");
        for (const std::string& name : names) {
            add.bind(1, name);
            add.exec();
            add.reset();
        }
    });
    std::vector<Photograph> added;
    for (const std::string& name : names) added.push_back(*photograph(name));
    return added;
}

std::vector<Photograph> Project::photographs() const {
    return state_->run([](SQLite::Database& db) { return State::photographs(db, "", ""); });
}

std::optional<Photograph> Project::photograph(const std::string& name) const {
    return state_->run([&](SQLite::Database& db) -> std::optional<Photograph> {
        const std::vector<Photograph> found = State::photographs(db, "WHERE name = ?", name);
        if (found.empty()) return std::nullopt;
        return found.front();
    });
}

void Project::putFeatures(const Photograph& photograph, const Camera& camera,
                          const Features& features, const DescMat& descriptorBytes) {
    const auto count = static_cast<int>(features.keypoints.size());
    const std::vector<unsigned char> rows = packed(features.rows);
    const std::vector<unsigned char> bytes = packed(descriptorBytes);
    const std::vector<StoredKeypoint> own = stored(features.keypoints);
    const std::vector<float> colmap = colmapKeypoints(features.keypoints);
    state_->transaction([&](SQLite::Database& db) {
        State::forget(db, photograph.id);
        SQLite::Statement image(db,
                                "INSERT INTO images(image_id, name, camera_id) VALUES(?, ?, ?)");
        SQLite::bind(image, photograph.id, photograph.name, State::cameraId(db, camera));
        image.exec();

        SQLite::Statement keypoints(
            db, "INSERT INTO keypoints(image_id, rows, cols, data) VALUES(?, ?, 4, ?)");
        keypoints.bind(1, photograph.id);
        keypoints.bind(2, count);
        bindArray(keypoints, 3, colmap);
        keypoints.exec();

        SQLite::Statement descriptors(
            db, "INSERT INTO descriptors(image_id, rows, cols, data) VALUES(?, ?, 128, ?)");
        descriptors.bind(1, photograph.id);
        descriptors.bind(2, descriptorBytes.rows);
        bindArray(descriptors, 3, bytes);
        descriptors.exec();

        SQLite::Statement put(db, "INSERT INTO marlo_features VALUES(?, ?, ?, ?, ?, ?)");
        put.bind(1, photograph.id);
        put.bind(2, count);
        bindArray(put, 3, own);
        put.bind(4, features.rows.type());
        put.bind(5, features.rows.cols);
        bindArray(put, 6, rows);
        put.exec();

        Photograph done = photograph;
        done.status = PhotographStatus::done;
        done.reason.clear();
        done.keypoints = count;
        done.width = camera.width;
        done.height = camera.height;
        State::putStatus(db, done);
    });
}

void Project::putFailure(const Photograph& photograph, const std::string& reason) {
    state_->transaction([&](SQLite::Database& db) {
        State::forget(db, photograph.id);
        Photograph failed = photograph;
        failed.status = PhotographStatus::failed;
        failed.reason = reason;
        failed.keypoints = 0;
        State::putStatus(db, failed);
    });
}

void Project::remove(const Photograph& photograph) {
    state_->transaction([&](SQLite::Database& db) {
        State::forget(db, photograph.id);
        db.exec("DELETE FROM marlo_photographs WHERE image_id = " + std::to_string(photograph.id));
    });
}

std::vector<Keypoint> Project::keypoints(std::int64_t id) const {
    return state_->run([&](SQLite::Database& db) {
        SQLite::Statement get(db, "SELECT keypoints FROM marlo_features WHERE image_id = ?");
        get.bind(1, id);
        if (!get.executeStep()) state_->throwNoFeatures(id);
        return restored(arrayOf<StoredKeypoint>(get.getColumn(0)));
    });
}

Features Project::features(std::int64_t id) const {
    return state_->run([&](SQLite::Database& db) {
        SQLite::Statement get(
            db, "SELECT rows, keypoints, type, cols, data FROM marlo_features WHERE image_id = ?");
        get.bind(1, id);
        if (!get.executeStep()) state_->throwNoFeatures(id);
        Features features;
        features.keypoints = restored(arrayOf<StoredKeypoint>(get.getColumn(1)));
        const int rows = get.getColumn(0).getInt();
        const int type = get.getColumn(2).getInt();
        const int cols = get.getColumn(3).getInt();
        const SQLite::Column data = get.getColumn(4);
        const bool known =
            (type == DescMat::Float || type == DescMat::Byte) && cols >= 0 && cols <= kMostColumns;
        const std::size_t rowBytes =
            known ? static_cast<std::size_t>(cols) * (type == DescMat::Float ? sizeof(float) : 1)
                  : 0;
        const bool whole =
            known && features.keypoints.size() == static_cast<std::size_t>(rows) &&
            static_cast<std::size_t>(data.getBytes()) == features.keypoints.size() * rowBytes;
        if (!whole) {
            throw ProjectError(state_->file() + ": the features of photograph " +
                               std::to_string(id) + " are damaged. Extract it again (--force).");
        }
        features.rows = DescMat(rows, cols, type);
        const auto* const bytes = static_cast<const unsigned char*>(data.getBlob());
        for (int i = 0; i < rows; ++i) {
            std::memcpy(features.rows.data + static_cast<std::size_t>(i) * features.rows.step,
                        bytes + static_cast<std::size_t>(i) * rowBytes, rowBytes);
        }
        return features;
    });
}

Camera Project::camera(std::int64_t id) const {
    return state_->run([&](SQLite::Database& db) {
        SQLite::Statement get(
            db,
            "SELECT width, height, focal_length, known, device FROM marlo_cameras "
            "JOIN images USING(camera_id) WHERE image_id = ?");
        get.bind(1, id);
        if (!get.executeStep()) {
            throw ProjectError(state_->file() + " has no camera of photograph " +
                               std::to_string(id) + ".");
        }
        return Camera{get.getColumn(0).getInt(), get.getColumn(1).getInt(),
                      get.getColumn(2).getDouble(), get.getColumn(3).getInt() != 0,
                      get.getColumn(4).getString()};
    });
}

std::vector<Pair> Project::pairs() const {
    return state_->run([&](SQLite::Database& db) {
        SQLite::Statement all(
            db,
            "SELECT first, second, matches.rows, two_view_geometries.rows, "
            "match_stamp, verify_stamp FROM marlo_pairs JOIN matches USING(pair_id) "
            "LEFT JOIN two_view_geometries USING(pair_id) ORDER BY pair_id");
        std::vector<Pair> pairs;
        while (all.executeStep()) {
            Pair pair;
            pair.first = all.getColumn(0).getInt64();
            pair.second = all.getColumn(1).getInt64();
            pair.matches = all.getColumn(2).getInt();
            if (!all.getColumn(3).isNull()) pair.inliers = all.getColumn(3).getInt();
            pair.matchStamp = all.getColumn(4).getString();
            pair.verifyStamp = all.getColumn(5).getString();
            pairs.push_back(std::move(pair));
        }
        return pairs;
    });
}

void Project::putMatches(std::int64_t first, std::int64_t second, const PairMatches& matches,
                         const std::string& stamp) {
    const std::int64_t id = pairId(first, second);
    state_->transaction([&](SQLite::Database& db) {
        db.exec("DELETE FROM two_view_geometries WHERE pair_id = " + std::to_string(id));
        SQLite::Statement put(
            db, "INSERT OR REPLACE INTO matches(pair_id, rows, cols, data) VALUES(?, ?, 2, ?)");
        put.bind(1, id);
        put.bind(2, static_cast<int>(matches.matches.rows()));
        bindMatches(put, 3, matches.matches);
        put.exec();
        SQLite::Statement own(db, "INSERT OR REPLACE INTO marlo_pairs VALUES(?, ?, ?, ?, ?, '')");
        own.bind(1, id);
        own.bind(2, first);
        own.bind(3, second);
        bindArray(own, 4, matches.scores);
        own.bind(5, stamp);
        own.exec();
    });
}

PairMatches Project::matches(std::int64_t first, std::int64_t second) const {
    return state_->run([&](SQLite::Database& db) {
        SQLite::Statement get(db,
                              "SELECT data, scores FROM matches JOIN marlo_pairs USING(pair_id) "
                              "WHERE pair_id = ?");
        get.bind(1, pairId(first, second));
        PairMatches found;
        if (!get.executeStep()) return found;
        found.matches = matchListOf(get.getColumn(0));
        found.scores = arrayOf<float>(get.getColumn(1));
        if (found.scores.size() != static_cast<std::size_t>(found.matches.rows())) {
            throw ProjectError("The matches of photographs " + std::to_string(first) + " and " +
                               std::to_string(second) +
                               " have been changed by another program. Match again (marlo match "
                               "--force).");
        }
        return found;
    });
}

void Project::putGeometry(std::int64_t first, std::int64_t second, const VerifiedPair& geometry,
                          const std::string& stamp) {
    const std::int64_t id = pairId(first, second);
    state_->transaction([&](SQLite::Database& db) {
        SQLite::Statement put(
            db,
            "INSERT OR REPLACE INTO two_view_geometries(pair_id, rows, cols, data, "
            "config, F, H, E) VALUES(?, ?, 2, ?, ?, ?, ?, ?)");
        put.bind(1, id);
        put.bind(2, static_cast<int>(geometry.inliers.rows()));
        bindMatches(put, 3, geometry.inliers);
        put.bind(4, geometry.config);
        if (!geometry.fundamental.isZero()) {
            bindMatrix(put, 5, shiftedFundamental(geometry.fundamental, kColmapPixelCorner));
        }
        if (!geometry.homography.isZero()) {
            bindMatrix(put, 6, shiftedHomography(geometry.homography, kColmapPixelCorner));
        }
        if (!geometry.essential.isZero()) bindMatrix(put, 7, geometry.essential);
        put.exec();
        SQLite::Statement own(db, "UPDATE marlo_pairs SET verify_stamp = ? WHERE pair_id = ?");
        own.bind(1, stamp);
        own.bind(2, id);
        own.exec();
    });
}

std::optional<VerifiedPair> Project::geometry(std::int64_t first, std::int64_t second) const {
    return state_->run([&](SQLite::Database& db) -> std::optional<VerifiedPair> {
        SQLite::Statement get(
            db, "SELECT data, config, F, H, E FROM two_view_geometries WHERE pair_id = ?");
        get.bind(1, pairId(first, second));
        if (!get.executeStep()) return std::nullopt;
        VerifiedPair found;
        found.inliers = matchListOf(get.getColumn(0));
        found.config = get.getColumn(1).getInt();
        found.fundamental = shiftedFundamental(matrixOf(get.getColumn(2)), -kColmapPixelCorner);
        found.homography = shiftedHomography(matrixOf(get.getColumn(3)), -kColmapPixelCorner);
        found.essential = matrixOf(get.getColumn(4));
        return found;
    });
}

bool isProject(const std::filesystem::path& folder) {
    std::error_code none;
    const std::filesystem::path file = folder / "database.db";
    if (!std::filesystem::is_regular_file(file, none)) return false;
    try {
        return SQLite::Database(file.string(), SQLite::OPEN_READONLY).tableExists("marlo_settings");
    } catch (const SQLite::Exception&) {
        // Most likely one that is being written to. A pictures folder must not be searched for it.
        return std::filesystem::exists(folder / "marlo.lock", none);
    }
}

std::vector<Photograph> photographsWithFeatures(const Project& project) {
    std::vector<Photograph> all = project.photographs();
    std::erase_if(all, [](const Photograph& p) { return p.status != PhotographStatus::done; });
    return all;
}

std::string featuresOf(const Photograph& photograph) {
    const nlohmann::json stamp = nlohmann::json::parse(photograph.stamp, nullptr, false);
    return stamp.is_object() ? stamp.value("features", "") : "";
}

}  // namespace marlo::app
