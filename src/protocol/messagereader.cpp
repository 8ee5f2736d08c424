#include "messagereader.h"

#include <QDebug>

namespace MessageReader {

void logDebug(const QString& line)
{
    qDebug().noquote() << line;
}

void logApiVersion(const QString& api)
{
    qDebug().noquote() << "API version" << api;
}

} // namespace MessageReader
