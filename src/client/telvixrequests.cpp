// Plain requests to the server: log, build one message, send it. Answers
// come back through the dispatcher.
#include "telvix_p.h"

#include "cdrmessages.h"
#include "commandmessages.h"
#include "messagereader.h"
#include "phonebookmessages.h"

#include <QSslSocket>

bool TelvixPrivate::getPhoneBook()
{
    TLOG(1000) << "Getting PhoneBook";
    GetPBookReqMsg request;
    send(request);
    return true;
}

bool TelvixPrivate::getCtiConfiguration()
{
    TLOG(1000) << "Getting CtiConfiguration";
    if (ApiText::below(serverApiVersion, "5.3"))
        TLOG(100) << "Asking for CtiConfiguration to a server having API < 5.3!";
    GetCtiConfigurationReqMsg request;
    send(request);
    return true;
}

bool TelvixPrivate::getServiceCodeList()
{
    qDebug() << "Getting service code list";
    GetServiceListReqMsg request;
    send(request);
    return true;
}

void TelvixPrivate::getPeriodicData()
{
    if (int(appMode) != 5)
        getCDR(false, QString());
}

bool TelvixPrivate::getCDR(bool cached, const QString& lastEntry)
{
    TLOG(10000) << "Current APP MODE:" << int(appMode);
    if (Telvix::appModeIsMobile(appMode)) {
        if (!lastEntry.isEmpty())
            TLOG(1000) << "Getting CDR for mobile from entry " << lastEntry;
        else
            TLOG(10000) << "Getting CDR for mobile app";
        GetCdrReqMsg request;
        request.lastEntryUid = lastEntry;
        if (socket)
            send(request);
        return true;
    }
    return getStoredCdr(cached, lastEntry);
}
