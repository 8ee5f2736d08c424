#pragma once

#include <QString>

/// The words of disconnectedFromServer() as a sentence for people. The
/// library passes the server's own reason through, so an unknown word is
/// shown as it is.
QString reasonText(const QString& reason);
