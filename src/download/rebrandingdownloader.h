#pragma once

#include "downloadmessages.h"
#include "sarnetdownloader.h"
#include "telvix_export.h"

/// \brief Fetches the rebranding package and keeps it as "assets.zip" in
/// destinationFolder; an answer without a package removes that file.
class TELVIX_EXPORT RebrandingDownloader : public SarnetDownloader
{
    Q_OBJECT
public:
    RebrandingDownloader(const QString& apiVersion, Logger* logger, QObject* parent = nullptr);

    /// MD5 of the package the client has; after a download, that of the new one.
    QString lastMd5;

    QString getRequestMsg() override;
    /// Ignores every message but "RebrandingPack".
    void handleResponseMsg(const QString& message) override;

    /// Writes the package (or removes the old one when the server holds none)
    /// and raises sigFinished(); sigError() when the file can't be opened.
    void savePackageFile(const RebrandingPack& pack);
};
