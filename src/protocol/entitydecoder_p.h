#pragma once

#include <QString>
#include <QStringView>

/// Decoding of the character references in the values of server messages:
/// the named entities, U+FFFD as a blank, and numeric references with the
/// results of replacing each reference's text everywhere in the decoded
/// value, one reference after the other (see `SimpleXmlParser::decodeEntities`).
namespace EntityDecoder {

/// Decodes `s` in time linear in its length. When `original` is given and `s`
/// holds nothing to decode, `*original` is returned without a copy.
QString decode(QStringView s, const QString* original = nullptr);

namespace reference {

/// The same result by the former algorithm, which replaces each numeric
/// reference's text over the whole decoded value: quadratic in the number of
/// references once one of them decodes to a character that can build a new
/// reference. Kept only as the yardstick of the differential tests, the fuzz
/// targets and the benchmark.
QString decode(QStringView s, const QString* original = nullptr);

} // namespace reference

} // namespace EntityDecoder
