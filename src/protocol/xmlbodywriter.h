#pragma once

#include "telvix_export.h"

#include <QString>
#include <QXmlStreamWriter>

/// Writes a message body with QXmlStreamWriter's default settings (no
/// formatting, no document start): text is plainly XML-escaped, an empty
/// text element comes out as <Name></Name> and an element without content
/// as <Name/>.
class TELVIX_EXPORT XmlBodyWriter
{
public:
    XmlBodyWriter();
    XmlBodyWriter(const XmlBodyWriter&) = delete;
    XmlBodyWriter& operator=(const XmlBodyWriter&) = delete;

    XmlBodyWriter& start(const QString& name);
    XmlBodyWriter& end();
    XmlBodyWriter& text(const QString& name, const QString& value);
    XmlBodyWriter& text(const QString& name, int value);
    /// <name/>
    XmlBodyWriter& empty(const QString& name);
    /// Text written as it stands, for ready-made XML.
    XmlBodyWriter& verbatim(const QString& xml);

    QXmlStreamWriter& writer() { return m_writer; }
    /// The body written so far; open elements are closed first.
    QString result();

private:
    QString m_body;
    QXmlStreamWriter m_writer;
    int m_openElements = 0;
};
