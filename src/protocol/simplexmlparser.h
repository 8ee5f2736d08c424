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
    struct Piece
    {
        int index;
        int base; // logical position of the piece's first unconsumed unit
    };

    int bufferLength() const { return m_length; }
    void appendToBuffer(const QString& data);
    void consumeBuffer(int count);
    void resetScan();
    void syncRootTag();
    int findInBuffer(const QString& needle, int& scanFrom) const;
    Piece pieceAt(int pos) const;
    QStringView pieceText(int index) const;
    QString bufferSlice(int pos, int count) const;
    void deliver(const QString& message);
    void enqueue(const QString& message);

    QStringList m_pendingMessages;
    /// Unconsumed text: the pieces as they arrived, less the first m_head
    /// units of the first. Chunks are shared, not copied, until a message is
    /// cut out of them, so a large message costs one copy and one allocation.
    QList<QString> m_buffer;
    QMutex m_mutex;
    int m_maxBufferSize = 0;
    int m_notifyMode = 0;
    int m_head = 0;
    int m_length = 0;

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
