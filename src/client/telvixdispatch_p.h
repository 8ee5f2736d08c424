#pragma once

#include "messagerecognizer.h"

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
