#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

// A client scenario: a fixture file (*.scenario under tests/fixtures/client)
// played against a real Telvix logged in to the fake CTI server over TLS.
// One line per step; blank lines and lines starting with '#' are skipped.
//
//   let NAME text              ${NAME} in later lines of the file becomes text; in
//                              ${NAME a|b}, $1 and $2 of text become a and b
//   scenario NAME              starts a case, played with a fresh client
// Header (before the first step of a case):
//   mode KEY [KEY...]          TELVIX::AppMode keys; one row per key (default AppModeSrntPro)
//   api 6.1 | exten 200 | features W1 W2
//   timers KA ACK GUI PERIODIC the session's timer intervals in ms (0 keeps the real one)
//   watch-login                signals raised during the login count too
//   offline                    no server and no login: the client is only init()ed
// Steps:
//   server BODY                BODY in a response document; waits for its MsgAck
//   server-noack BODY          BODY, then a probe; waits for the keep-alive, checks no MsgAck came
//   send BODY                  BODY in a response document, without waiting
//   noack                      after a round trip (none once the connection is closed), the
//                              last document sent has no MsgAck
//   keepalive-ack on|off       whether the server answers keep-alives
//   call NAME [ARGS] [=> RES]  the method called from the test's thread with the JSON array
//                              ARGS (JsonConvert; null: a default value), its result
//                              compared with the JSON RES
//   call@lib ...               the same, called on the library's thread
//   frame ELEMENT TEXT         the next frame carrying ELEMENT; what stands inside <Request>
//                              (the whole frame when there is none) equals TEXT
//   frame~ ELEMENT REGEX       the next frame carrying ELEMENT matches REGEX
//   frames ELEMENT N           after a round trip, N frames since the login (or the last
//                              forget) carry ELEMENT
//                              ("*": every frame but MsgAck and KeepAlive)
//   bytes TEXT                 the raw bytes from the client contain TEXT
//   forget                     after a round trip, the frames so far are forgotten
//   signal NAME JSON           the earliest unmatched NAME raised, its arguments as a JSON
//                              array; "*" in JSON matches any value
//   signal<ack NAME JSON       the same, raised before the MsgAck of the last server step came
//   nosignal NAME              after a round trip, no unmatched NAME ("prefix*": no name so starting)
//   log PRIORITY TEXT | logcount N TEXT | nolog TEXT | qtlog TEXT | noqtlog TEXT
//   logs N TEXT                at least N lines contain TEXT, waited for
//   legs UID JSON | calls JSON | legcount N    the call table (JSON as for signals)
//   ack-timer running|stopped  the timer that waits for the answer to a keep-alive
//   peers JSON                 the dispatcher's maps: accountToExten, extenToAccounts,
//                              extenStatus, chatIdToExten, extenToChatId
//   disconnect                 the server closes the connection
//   redirect                   a second server starts; the client is redirected to it (no
//                              address: the same host), logs in there and acknowledges the
//                              redirection there; later steps talk to it
//   connections TOTAL OPEN     the server has accepted TOTAL connections, OPEN of them open
//   restart                    the client is shut down and built again on the same data
//                              folder; when online, a new server logs it in as at the start
//   file NAME absent|exists|scrambled   a file of the data folder: missing, there with data,
//                              or with data that is no SQLite file
//   local-connect              an application connects to the library's local server
//   local TEXT                 the next message of each application still connected is TEXT
//   local-closed               every application's connection has ended
//   ini KEY JSON | ini-set KEY TEXT | ini-groups GROUP JSON    srnt.ini in the data folder
// In a step, $PORT is the port of the server the client talks to, $NOW the
// local time as the server writes dates, $TODAY and $MONTHAGO ISO dates.
// A JSON, or the TEXT of a frame, written "?" fails the step; with the
// environment variable TELVIX_SCENARIO_SHOW set, the step prints what it met
// instead ("SHOW line value") and goes on, which is how a new case is filled in.
struct ScenarioCase
{
    QString tag; // "folder/file:name [mode]"
    QString file;
    QString mode;
    QStringList header;
    QStringList steps;
    QList<int> stepLines;
};

/// A test object whose rows play the scenarios of tests/fixtures/client/`folder`
/// (but those whose tag starts with a word of `skip`), before the test's own
/// functions; a failed step fails the row.
class ScenarioTest : public QObject
{
    Q_OBJECT
public:
    explicit ScenarioTest(const QString& folder, const QStringList& skip = {})
        : m_folder(folder)
        , m_skip(skip)
    {
    }

private Q_SLOTS:
    void play_data();
    void play();

private:
    QString m_folder;
    QStringList m_skip;
    QList<ScenarioCase> m_cases;
};
