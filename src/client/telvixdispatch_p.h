#pragma once

#include "messagerecognizer.h"
#include "telvixlog_p.h"

#include <QString>
#include <QVector>

class TelvixPrivate;

/// What one dispatch branch tells the loop.
struct DispatchContext
{
    /// Id to acknowledge after the branch; empty sends nothing.
    QString ackId;
    /// Login responses, "LoggedOff" and a refused redirect leave the loop at
    /// once, without the acknowledgement.
    bool leaveLoop = false;
};

/// How a row logs a message that its parser found invalid. A row whose
/// message has no validity test leaves `text` null.
struct InvalidWords
{
    int priority = 0;
    const char* text = nullptr;
};

/// The common start of a row: parses `xml` with `Msg`, takes the id the
/// parser found for the acknowledgement (an invalid message's too) and logs
/// an invalid message. The row then acts on `success` of the result.
template <typename Msg>
Msg parseRow(const QString& xml, DispatchContext& ctx, Logger* logger, const char* function,
             const InvalidWords& invalid)
{
    Msg msg = Msg::parseMessage(xml);
    ctx.ackId = msg.uuid;
    if (!msg.success && invalid.text)
        TelvixLogLine(logger, invalid.priority, function) << invalid.text;
    return msg;
}

using DispatchHandler = void (TelvixPrivate::*)(const QString& xml, DispatchContext& ctx);

/// One row of the dispatch table: the needles that select it and its
/// handler. A row without a handler treats its message as unhandled.
struct DispatchRow
{
    MessageRecognizer::Row needles;
    DispatchHandler handler;
};

/// The rows in their fixed order; the order decides between elements that
/// contain one another.
const QVector<DispatchRow>& dispatchTable();
/// Recogniser built over dispatchTable().
const MessageRecognizer& dispatchRecognizer();
