#include "xmlbodywriter.h"

XmlBodyWriter::XmlBodyWriter()
    : m_writer(&m_body)
{
}

XmlBodyWriter& XmlBodyWriter::start(const QString& name)
{
    ++m_openElements;
    m_writer.writeStartElement(name);
    return *this;
}

XmlBodyWriter& XmlBodyWriter::end()
{
    if (m_openElements == 0)
        return *this;
    --m_openElements;
    m_writer.writeEndElement();
    return *this;
}

XmlBodyWriter& XmlBodyWriter::text(const QString& name, const QString& value)
{
    m_writer.writeTextElement(name, value);
    return *this;
}

XmlBodyWriter& XmlBodyWriter::text(const QString& name, int value)
{
    m_writer.writeTextElement(name, QString::number(value));
    return *this;
}

XmlBodyWriter& XmlBodyWriter::empty(const QString& name)
{
    m_writer.writeEmptyElement(name);
    return *this;
}

XmlBodyWriter& XmlBodyWriter::verbatim(const QString& xml)
{
    // Close a pending start tag ("<Name") before raw text goes in.
    m_writer.writeCharacters(QString());
    m_body += xml;
    return *this;
}

QString XmlBodyWriter::result()
{
    // writeEndDocument closes what is still open, and then always appends a
    // line break, which is no part of a message body.
    m_writer.writeEndDocument();
    m_body.chop(1);
    return m_body;
}
