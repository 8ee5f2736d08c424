#pragma once

#include <QString>

/// \brief Where the simulator's TLS certificate and key are.
///
/// The build makes a self-signed test certificate in the build tree; a
/// simulator run from elsewhere makes its own once, with the openssl
/// command, in the user's cache directory. Either is for testing only.
namespace SimCertificate {

/// Fills `certificate` and `key` with usable paths: the given ones, the
/// build's, or the cache's (made now if missing).
bool locate(QString* certificate, QString* key, QString* error);

} // namespace SimCertificate
