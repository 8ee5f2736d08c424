#pragma once

#include <QList>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>

/// The message scanner written the plain way, with regular expressions, one
/// statement per rule. It is slow (expressions compiled at every call, the
/// buffer searched from its start after every chunk) and exists only as the
/// yardstick that the differential tests and the benchmark hold
/// `SimpleXmlParser` against.
namespace ReferenceXmlParser {

QString getTagValue(const QString& xml, const QString& tag, int startPos = 0,
                    const QString& defaultValue = QString(""));
QString getDecodedTagValue(const QString& xml, const QString& tag, int startPos = 0,
                           const QString& defaultValue = QString(""));
QStringList getTagsValues(const QString& xml, const QString& tag);
QStringList getDecodedTagsValues(const QString& xml, const QString& tag);
QMap<QString, QString> getTagProperties(const QString& xml, const QString& tag, int startPos = 0);
QList<QMap<QString, QString>> getTagsProperties(const QString& xml, const QString& tag);
bool findStartTagDelimiters(const QString& xml, const QString& tag, int startPos, int& start, int& end);
QString unquoteString(const QString& s);
QString decodeEntities(const QString& s);
QString encodeEntities(const QString& s, bool encodeNonAscii);

/// Stream framing with the same interface and signals as `SimpleXmlParser`.
class Framer : public QObject
{
    Q_OBJECT
public:
    /// Same values as `SimpleXmlParser::ParseErrorEnumType`.
    enum ParseErrorEnumType { MalformedStream = 0, BufferFull = 1 };
    Q_ENUM(ParseErrorEnumType)

    explicit Framer(QObject* parent = nullptr);

    QString rootTag;

    void addData(const QString& data);
    bool hasPendingMessages();
    QString getNextMessage();
    void setMaxBufferSize(int size);
    int maxBufferSize() const { return m_maxBufferSize; }
    void setNotifyMode(int mode) { m_notifyMode = mode; }
    int notifyMode() const { return m_notifyMode; }
    QString getCurrentBuffer() const;
    void emptyBuffer();

Q_SIGNALS:
    void messageCompleted();
    void parsedMessage(QString msg);
    void parseErrorFound(ReferenceXmlParser::Framer::ParseErrorEnumType error);

private:
    QStringList m_pendingMessages;
    QString m_buffer;
    QMutex m_mutex;
    int m_maxBufferSize = 0;
    int m_notifyMode = 0;
};

} // namespace ReferenceXmlParser
