#pragma once

// The events that the library re-publishes to local applications, in one
// table read by every feed: the local server's XML and the web bridge's
// JSON. A feed takes the rows in order, so both see the same events in the
// same order.

#include <QMetaMethod>
#include <QtGlobal>

class ClientSocketManager;
class QObject;
class Telvix;

namespace PublishedEvents {

struct Row
{
    /// Normalised signature of the signal of Telvix.
    const char* signal;
    /// Normalised signature of the local server's slot; null for a chat
    /// receipt, which goes through TelvixPrivate::sendChatMessageEvent.
    const char* localServerSlot;
    /// The receipt's word for the local server ("OFFLINE", ...), else null.
    const char* receipt;
    /// A failed connection to the local server is reported.
    bool checked;
};

/// The rows, in the order in which the feeds connect them.
const Row* begin();
const Row* end();

/// The signal of `row` on Telvix; invalid if the table names none.
QMetaMethod signalOf(const Row& row);

} // namespace PublishedEvents
