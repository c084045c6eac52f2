// SPDX-License-Identifier: BSD-3-Clause
// Included once for each instruction set, inside a namespace of its own that offers:
//   Bytes              a vector of bytes
//   Mask               an unsigned integer
//   kMaskBits<D>       bits of a mask that stand for one distance of type D
//   below(d, limit)    mask of the distances in the vector `d` that are below `limit` > 0

constexpr int kVectorsTogether = 4;

/// The two nearest of the first rows that a query meets. So many of these come nearer than all
/// before that it pays to do without branches: every lane of a pair of vectors keeps its two lowest
/// keys, distance * 2^kHammingKeyBits + number of the vector. Rows 2 i and 2 i + 1 of a vector are
/// lane i of `low[0]` and `low[1]`.
template <int N>
void offerFirst(const HammingDistance<N>* distances, int count, std::uint32_t first,
                TwoNearestBits& nearest) {
    using Key = HammingKey<N>;
    typedef Key Keys __attribute__((vector_size(sizeof(Bytes))));
    constexpr int kLanes = static_cast<int>(sizeof(Bytes) / sizeof(Key));
    constexpr int kShift = kHammingKeyBits<N>;
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
    const Keys none = ~Keys{};
    Keys low[2] = {none, none};
    Keys next[2] = {none, none};
    Keys number{};
    for (int at = 0; at < count; at += 2 * kLanes, number += 1) {
        const Keys both = vectorAt<Keys>(distances + at).value;
        const Keys keys[2] = {(both << kShift) | number, ((both >> kShift) << kShift) | number};
        for (int i = 0; i < 2; ++i) {
            const Keys higher = keys[i] < low[i] ? low[i] : keys[i];
            low[i] = keys[i] < low[i] ? keys[i] : low[i];
            next[i] = higher < next[i] ? higher : next[i];
        }
    }

    Key lowest[2][kLanes];
    for (int i = 0; i < 2; ++i) vectorAt<Keys>(lowest[i]).value = low[i];
    const auto minimum = [&lowest] {
        Key least = lowest[0][0];
        for (int lane = 0; lane < kLanes; ++lane) {
            const Key pair = lowest[0][lane] < lowest[1][lane] ? lowest[0][lane] : lowest[1][lane];
            least = pair < least ? pair : least;
        }
        return least;
    };
    const auto offerKey = [&nearest, first](Key key, int row) {
        const auto distance = static_cast<HammingDistance<N>>(key >> kShift);
        if (distance == kNoDistance<N>) return;
        const auto vector = static_cast<std::uint32_t>(key & ((1U << kShift) - 1));
        nearest.offer(distance, first + vector * 2 * kLanes + static_cast<std::uint32_t>(row));
    };
    // Of equal distances the key of the first vector is the lowest, and in it the first row counts.
    const Key best = minimum();
    int row = 0;
    while (lowest[row % 2][row / 2] != best) ++row;
    offerKey(best, row);
    lowest[row % 2][row / 2] = next[row % 2][row / 2];
    offerKey(minimum(), row);  // whichever row it is: only its distance counts
}

template <int N>
void offer(const HammingDistance<N>* distances, int count, std::uint32_t first,
           TwoNearestBits& nearest) {
    using Distance = HammingDistance<N>;
    typedef Distance Distances __attribute__((vector_size(sizeof(Bytes))));
    constexpr int kLanes = static_cast<int>(sizeof(Bytes) / sizeof(Distance));
    constexpr Mask kLane = (Mask{1} << kMaskBits<Distance>)-1;
    int at = 0;
    if (nearest.index == TwoNearestBits::kNoIndex) {
        constexpr int kMost = kLanes << std::min(kHammingKeyBits<N>, 8);  // that keys can number
        at = std::min(count, kMost);
        offerFirst<N>(distances, at, first, nearest);
    }
    for (; at < count; at += kVectorsTogether * kLanes) {
        // Few rows come near enough, so first their minimum.
        const Distances d0 = vectorAt<Distances>(distances + at).value;
        const Distances d1 = vectorAt<Distances>(distances + at + kLanes).value;
        const Distances d2 = vectorAt<Distances>(distances + at + 2 * kLanes).value;
        const Distances d3 = vectorAt<Distances>(distances + at + 3 * kLanes).value;
        const Distances low01 = d0 < d1 ? d0 : d1;
        const Distances low23 = d2 < d3 ? d2 : d3;
        if (nearest.second == 0) return;  // ambiguous, whatever comes
        if (below(low01 < low23 ? low01 : low23, limitOf<N>(nearest)) == 0) continue;
        for (int v = 0; v < kVectorsTogether; ++v) {
            if (nearest.second == 0) return;
            const int from = at + v * kLanes;
            const Distances d = vectorAt<Distances>(distances + from).value;
            Mask mask = below(d, limitOf<N>(nearest));
            while (mask != 0) {
                const int bit = __builtin_ctzll(mask);
                mask &= ~(kLane << bit);
                const int i = from + bit / kMaskBits<Distance>;
                nearest.offer(distances[i], first + static_cast<std::uint32_t>(i));
            }
        }
    }
}

template <int N>
void lowerKeys(const HammingDistance<N>* distances, int count, unsigned query,
               HammingKey<N>* keys) {
    // Two distances in one lane of keys: the row of the low half and that of the high half.
    using Key = HammingKey<N>;
    typedef Key Keys __attribute__((vector_size(sizeof(Bytes))));
    constexpr int kLanes = static_cast<int>(sizeof(Bytes) / sizeof(Key));
    constexpr int kShift = kHammingKeyBits<N>;
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
    const Keys number = Keys{} + static_cast<Key>(query);
    const int pairs = count / 2;
    for (int i = 0; i < pairs; i += kLanes) {
        const Keys both = vectorAt<Keys>(distances + 2 * i).value;
        const Keys even = (both << kShift) | number;
        const Keys odd = ((both >> kShift) << kShift) | number;
        const Keys oldEven = vectorAt<Keys>(keys + i).value;
        const Keys oldOdd = vectorAt<Keys>(keys + pairs + i).value;
        vectorAt<Keys>(keys + i).value = even < oldEven ? even : oldEven;
        vectorAt<Keys>(keys + pairs + i).value = odd < oldOdd ? odd : oldOdd;
    }
}
