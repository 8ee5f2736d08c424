#pragma once

#include "telvix_export.h"

#include <QList>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <QVector>

/// Cuts a text stream into complete root-framed messages, and pulls element
/// values and attributes out of one message by flat scanning.
///
/// It is a scanner, not an XML parser: no tree, no nesting beyond the first
/// match, no namespaces, no CDATA, no comments. Every message class is
/// written against exactly these lookup rules, so they must not change.
class TELVIX_EXPORT SimpleXmlParser : public QObject
{
    Q_OBJECT
public:
    enum ParseErrorEnumType { MalformedStream = 0, BufferFull = 1 };
    Q_ENUM(ParseErrorEnumType)

    explicit SimpleXmlParser(QObject* parent = nullptr);
    ~SimpleXmlParser() override;

    /// Name of the framing element, without angle brackets.
    QString rootTag;

    void addData(const QString& data);
    bool hasPendingMessages();
    QString getNextMessage();
    void setMaxBufferSize(int size);
    int maxBufferSize() const { return m_maxBufferSize; }
    /// 0 (default): queue + messageCompleted; 1: queue + parsedMessage;
    /// 2: parsedMessage only; 3: queue + messageCompleted + parsedMessage;
    /// anything else: queue silently.
    void setNotifyMode(int mode) { m_notifyMode = mode; }
    int notifyMode() const { return m_notifyMode; }
    QString getCurrentBuffer() const;
    void emptyBuffer();

    static QString getTagValue(const QString& xml, const QString& tag, int startPos = 0,
                               const QString& defaultValue = QStringLiteral(""));
    static QString getDecodedTagValue(const QString& xml, const QString& tag, int startPos = 0,
                                      const QString& defaultValue = QStringLiteral(""));
    /// The same lookups on a part of a larger text, such as one entry of a list.
    static QString getTagValue(QStringView xml, const QString& tag, int startPos = 0,
                               const QString& defaultValue = QStringLiteral(""));
    static QString getDecodedTagValue(QStringView xml, const QString& tag, int startPos = 0,
                                      const QString& defaultValue = QStringLiteral(""));
    static QStringList getTagsValues(const QString& xml, const QString& tag);
    /// getTagsValues() without the copies: each value as a view into `xml`
    /// (empty where getTagsValues gives ""), valid while `xml` is.
    static QVector<QStringView> getTagsValueViews(QStringView xml, const QString& tag);
    static QStringList getDecodedTagsValues(const QString& xml, const QString& tag);
    static QMap<QString, QString> getTagProperties(const QString& xml, const QString& tag, int startPos = 0);
    static QList<QMap<QString, QString>> getTagsProperties(const QString& xml, const QString& tag);
    static bool findStartTagDelimiters(const QString& xml, const QString& tag, int startPos, int& start,
                                       int& end);
    static QString unquoteString(const QString& s);
    static QString decodeEntities(const QString& s);
    static QString encodeEntities(const QString& s, bool encodeNonAscii);

Q_SIGNALS:
    void foundTag(QString tag, QString value);
    void messageCompleted();
    void parsedMessage(QString msg);
    void parseErrorFound(SimpleXmlParser::ParseErrorEnumType error);

private:
    int bufferLength() const { return m_text.size() - m_head; }
    QStringView unconsumed() const { return QStringView(m_text).mid(m_head); }
    void appendToBuffer(const QString& data);
    void consumeBuffer(int count);
    /// The pending text into a string of its own, the consumed head freed.
    void dropConsumed();
    QString takeMessage(int start, int stop);
    void resetScan();
    void syncRootTag();
    int findInBuffer(const QString& needle, int& scanFrom) const;
    void deliver(const QString& message);
    void enqueue(const QString& message);

    QStringList m_pendingMessages;
    /// The text received and not yet cut into messages: m_text less its
    /// first m_head units. One growing string, written once as the text
    /// arrives, so that a large message is handed on as the string itself,
    /// not copied again from the chunks it came in.
    QString m_text;
    QMutex m_mutex;
    int m_maxBufferSize = 0;
    int m_notifyMode = 0;
    int m_head = 0;

    // Search state, in positions of the unconsumed text. A search that failed
    // resumes where a root tag split across chunks could still begin.
    QString m_framedTag;
    QString m_openTag;
    QString m_closeTag;
    int m_openAt = -1;
    int m_openScanFrom = 0;
    int m_closeAt = -1;
    int m_closeScanFrom = 0;
};
