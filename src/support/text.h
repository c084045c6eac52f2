// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QString>

/// Conversion of values to and from the text that a host stores or shows. A type that can be
/// converted specialises both templates beside its definition; for any other type a call does not
/// compile. The texts are fixed: they depend on no locale and are not translated.
namespace marlo::text {

/// The value that `text` stands for. Specialisations compare exactly and case-sensitively.
/// @throws std::range_error if the text stands for no value.
template <typename T>
T fromString(const QString& text) = delete;

/// The text of `value`.
/// @throws std::range_error if the value is none that has a text.
template <typename T>
QString toString(const T& value) = delete;

}  // namespace marlo::text
