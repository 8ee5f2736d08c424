#pragma once

#include "telvix_export.h"

#include <QString>

/// \brief Turns the links of web pages and desktops (`tel:`, `callto:`,
/// `sip:`, `sips:`) into the string that the PBX dials.
///
/// - `tel:` follows RFC 3966. A global number gives "+" and its digits; a
///   local number gives its digits (including `*`, `#` and A to D) as a user
///   inside its `phone-context` would dial them. Visual separators
///   (`-`, `.`, `(`, `)`) and blanks are dropped, percent-encoding is decoded,
///   and `ext`, `isub` and unknown parameters are checked for syntax but not
///   dialled: a PBX call has no room for post-dial digits. A local number
///   without `phone-context` is accepted, because pages write `tel:100` for
///   an extension.
/// - `callto:` (with or without `//`) must name a phone number; it is read
///   like the number of a `tel:` link.
/// - `sip:` and `sips:` give their user part, without password and
///   parameters; a user part that is a phone number loses its separators,
///   any other (a name) is given as it stands.
///
/// The scheme is case-insensitive; blanks round the whole text are ignored.
namespace TelephoneUri {
/// The dial string for `uri`; on failure an empty string, and `*error` (when
/// given) says why. On success `*error` is cleared.
TELVIX_EXPORT QString toDialString(const QString& uri, QString* error = nullptr);
} // namespace TelephoneUri
