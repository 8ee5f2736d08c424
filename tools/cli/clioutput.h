#pragma once

#include <QJsonArray>
#include <QJsonValue>
#include <QMetaMethod>
#include <QString>

/// \brief Everything telvix-cli writes on standard output, one line at a
/// time and flushed at once: a JSON object per line with --json, a readable
/// line otherwise. Notes about the tool itself go to standard error.
class CliOutput
{
public:
    explicit CliOutput(bool json)
        : m_json(json)
    {
    }

    bool isJson() const { return m_json; }

    /// {"signal", "signature", "args"}, or "name param=value ...".
    void printSignal(const QMetaMethod& signal, const QJsonArray& args) const;
    /// {"id", "call", "result"}, or "call => value".
    void printResult(const QJsonValue& id, const QString& call, const QJsonValue& value) const;
    /// {"id", "error"}, or "error: text".
    void printError(const QJsonValue& id, const QString& text) const;
    /// A line of text in human mode; {"id", "call": "echo", "result"} in JSON mode.
    void printText(const QJsonValue& id, const QString& text) const;
    static void note(const QString& text);

    /// A compact one-line rendering of a JSON value: records as {key=value},
    /// empty fields left out, long lists cut after a few items.
    static QString humanText(const QJsonValue& value);

private:
    static QString humanText(const QJsonValue& value, int depth);
    void writeLine(const QString& line) const;

    bool m_json;
};
