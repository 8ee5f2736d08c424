// telvix-cli --json against telvix-pbx-sim, both run as real processes over
// TLS on 127.0.0.1, as the scripts in tests/fixtures/tools/clipbxsim play them
// (the README there lists the steps and the patterns).
#include "fakectiserver.h"
#include "fixturetable.h"
#include "prosodyserver.h"
#include "toolprocess.h"
#include "wavefileparser.h"

#include <QSslSocket>
#include <QTcpSocket>

#include <cmath>
#include <map>

namespace {

QStringList strings(const QJsonValue& list)
{
    return list.toVariant().toStringList();
}

// An object holds at least the keys of the pattern, an array starts with its
// elements; an object of "$" operators tests the value instead.
bool matches(const QJsonValue& actual, const QJsonValue& pattern)
{
    const QJsonObject want = pattern.toObject(), have = actual.toObject();
    const QJsonArray expected = pattern.toArray(), list = actual.toArray();
    const auto elementMatches = [](const QJsonValue& p, const QJsonValue& a) { return matches(a, p); };
    if (pattern.isArray())
        return actual.isArray() && expected.size() <= list.size()
            && std::equal(expected.begin(), expected.end(), list.begin(), elementMatches);
    const bool ops = !want.isEmpty() && want.begin().key().startsWith(QLatin1Char('$'));
    if (!pattern.isObject() || (!ops && !actual.isObject()))
        return actual == pattern;
    for (auto it = want.begin(); it != want.end(); ++it) {
        const QString op = it.key();
        const QJsonValue x = it.value();
        const QJsonArray options = x.toArray();
        const bool ok = !ops      ? have.contains(op) && matches(have.value(op), x)
            : op == "$is"         ? matches(actual, x)
            : op == "$size"       ? (actual.isObject() ? have.size() : list.size()) == x.toInt()
            : op == "$nonEmpty"   ? !actual.toString().isEmpty() || !list.isEmpty()
            : op == "$bits"       ? (actual.toInt() & x.toInt()) == x.toInt()
            : op == "$min"        ? actual.toDouble() >= x.toDouble()
            : op == "$max"        ? actual.toDouble() <= x.toDouble()
            : op == "$startsWith" ? actual.toString().startsWith(x.toString())
            : op == "$contains"   ? actual.toString().contains(x.toString())
            : op == "$last"       ? !list.isEmpty() && matches(list.last(), x)
            : op == "$oneOf"      ? std::any_of(options.begin(), options.end(),
                                                [&](const QJsonValue& o) { return matches(actual, o); })
                                  : false;
        if (!ok)
            return false;
    }
    return true;
}

} // namespace

class tst_CliPbxSim : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void script_data();
    void script();
    // The clients end before the servers they talk to.
    void cleanup() { m_clis.clear(), m_sim.reset(), m_server.reset(), m_chat.reset(); }

private:
    void step(const QJsonObject& s);
    QJsonValue resolve(const QJsonValue& v) const;
    ToolProcess& cli(const QJsonObject& s) { return *m_clis.at(s.value("cli").toString("cli")); }
    int var(const QString& name) const { return m_vars.value(name).toVariant().toInt(); }
    void checkPcmWave(const QString& path);
    void checkZip(const QString& path);
    void checkLocalServer(ToolProcess& cli);

    QTemporaryDir m_dir;
    int m_runs = 0;
    std::unique_ptr<ProsodyServer> m_chat;
    std::unique_ptr<FakeCtiServer> m_server;
    std::unique_ptr<ToolProcess> m_sim;
    std::map<QString, std::unique_ptr<ToolProcess>> m_clis;
    QMap<QString, QJsonValue> m_vars;
};

void tst_CliPbxSim::script_data()
{
    addScenarioRows("tools/clipbxsim/scripts");
}

void tst_CliPbxSim::script()
{
    QFETCH(QJsonArray, steps);
    if (steps.at(0).toObject().contains("prosody") && !ProsodyServer::isInstalled())
        QSKIP("prosody is not installed");
    const QString dir = m_dir.filePath(QString::number(++m_runs));
    QVERIFY(QDir().mkpath(dir));
    m_vars = {{"DIR", dir}, {"FIXTURES", TELVIX_TEST_FIXTURES}};
    for (const QJsonValue& s : qAsConst(steps)) {
        step(resolve(s).toObject());
        if (QTest::currentTestFailed())
            return;
    }
}

// "$name" stands for a saved value, "${name}" within a text for its text.
QJsonValue tst_CliPbxSim::resolve(const QJsonValue& v) const
{
    if (v.isArray()) {
        QJsonArray list;
        for (const QJsonValue& e : v.toArray())
            list.append(resolve(e));
        return list;
    }
    if (v.isObject()) {
        QJsonObject o = v.toObject();
        for (auto it = o.begin(); it != o.end(); ++it)
            it.value() = resolve(it.value());
        return o;
    }
    QString text = v.toString();
    if (!v.isString())
        return v;
    if (text.startsWith('$') && m_vars.contains(text.mid(1)))
        return m_vars.value(text.mid(1));
    for (auto it = m_vars.cbegin(); it != m_vars.cend(); ++it)
        text.replace("${" + it.key() + "}", it.value().toVariant().toString());
    return text;
}

void tst_CliPbxSim::step(const QJsonObject& s)
{
    const QString where = compact(s);
    const int timeout = s.value("timeout").toInt(10000);
    if (s.contains("sim")) {
        const QString options = QStringLiteral("--port 0 --answer-delay 300 --probe-interval 0");
        m_sim.reset(
            new ToolProcess(QStringLiteral(TELVIX_PBXSIM), options.split(' ') + strings(s.value("sim"))));
        QVERIFY(m_sim->start());
        const QString line = m_sim->waitForLine("listening on 127.0.0.1:", 10000);
        m_vars["PORT"] = QRegularExpression("127\\.0\\.0\\.1:(\\d+)").match(line).captured(1);
        QVERIFY2(!m_vars["PORT"].toString().isEmpty(), qPrintable(where));
    } else if (s.contains("fakeServer")) {
        m_server.reset(new FakeCtiServer);
        QVERIFY(m_server->listen());
        m_vars["PORT"] = QString::number(m_server->port());
    } else if (s.contains("prosody")) {
        m_chat.reset(new ProsodyServer);
        const QJsonObject users = s.value("prosody").toObject();
        for (auto it = users.begin(); it != users.end(); ++it)
            m_chat->addUser(it.key(), it.value().toString());
        m_chat->setSharedRoster(true);
        QVERIFY2(m_chat->start(), qPrintable(m_chat->errorString()));
        m_vars["CHATPORT"] = QString::number(m_chat->port());
    } else if (s.contains("start")) {
        const QString name = s.value("start").toString();
        const QString user = s.value("user").toString();
        const QString login
            = QStringLiteral("--json --user %1 --password %2 --server 127.0.0.1:%3 --data-dir %4/%5")
                  .arg(user, s.value("password").toString(user), m_vars["PORT"].toString(),
                       m_vars["DIR"].toString(), name);
        const QStringList args
            = s.contains("raw") ? strings(s.value("raw")) : login.split(' ') + strings(s.value("options"));
        auto& process = m_clis[name];
        process.reset(
            new ToolProcess(QStringLiteral(TELVIX_CLI), args, s.value("cwd").toString(), !s.contains("raw")));
        QVERIFY2(process->start(), qPrintable(where));
    } else if (s.contains("send")) {
        const QJsonObject command {{"call", s.value("send")},
                                   {"args", s.value("args").toArray()},
                                   {"id", s.contains("id") ? s.value("id") : s.value("send")}};
        cli(s).sendLine(QJsonDocument(command).toJson(QJsonDocument::Compact));
    } else if (s.contains("line")) {
        cli(s).sendLine(s.value("line").toString().toUtf8());
    } else if (s.contains("close")) {
        cli(s).closeWriteChannel();
    } else if (s.contains("answer") || s.contains("signal") || s.contains("take")) {
        const QJsonValue pattern = s.contains("take") ? s.value("take") : s.value("is");
        const QJsonObject got = cli(s).take(
            [&](const QJsonObject& o) {
                return (!s.contains("answer") || (o.contains("id") && o.value("id") == s.value("answer")))
                    && (!s.contains("signal") || o.value("signal") == s.value("signal"))
                    && (pattern.isUndefined() || matches(o, pattern));
            },
            timeout);
        QVERIFY2(!got.isEmpty(), qPrintable(where + "\nafter:\n" + cli(s).lines.join('\n').right(4000)));
        const QJsonObject save = s.value("save").toObject();
        for (auto it = save.begin(); it != save.end(); ++it) {
            QJsonValue v = got;
            for (const QString& key : it.value().toString().split('/'))
                v = v.isArray() ? v.toArray().at(key.toInt()) : v.toObject().value(key);
            m_vars[it.key()] = v;
        }
    } else if (s.contains("none")) {
        const auto named = [&](const QJsonObject& o) { return o.value("signal") == s.value("none"); };
        QVERIFY2(cli(s).take(named, 0).isEmpty(), qPrintable(where));
    } else if (s.contains("noLine")) {
        QVERIFY2(cli(s).lines.filter(s.value("noLine").toString()).isEmpty(), qPrintable(where));
    } else if (s.contains("before")) {
        const QStringList pair = strings(s.value("before"));
        const int first = cli(s).lines.indexOf(QRegularExpression(".*" + pair.at(0) + ".*"));
        QVERIFY2(first >= 0 && first < cli(s).lines.indexOf(QRegularExpression(".*" + pair.at(1) + ".*")),
                 qPrintable(where));
    } else if (s.contains("exit")) {
        QVERIFY2(cli(s).waitForExit(s.value("timeout").toInt(15000)), qPrintable(where));
        QCOMPARE(cli(s).exitCode(), s.value("exit").toInt());
        QVERIFY2(!cli(s).json || cli(s).nonJson.isEmpty(), qPrintable(cli(s).nonJson.join('\n')));
    } else if (s.contains("stderr")) {
        QVERIFY2(cli(s).errorOutput().startsWith(s.value("stderr").toString()), qPrintable(where));
    } else if (s.contains("simLine")) {
        const QString line = m_sim->waitForLine(s.value("simLine").toString(), timeout);
        const QRegularExpressionMatch m = QRegularExpression(s.value("regex").toString()).match(line);
        QVERIFY2(!line.isEmpty() && m.hasMatch(), qPrintable(where + "\n" + line));
        const QJsonObject save = s.value("save").toObject();
        for (auto it = save.begin(); it != save.end(); ++it)
            m_vars[it.key()] = m.captured(it.value().toInt());
    } else if (s.contains("serverFrame")) {
        QVERIFY2(!m_server->waitForFrame(s.value("serverFrame").toString(), timeout).isEmpty(),
                 qPrintable(where));
    } else if (s.contains("serverConnections")) {
        QTRY_COMPARE(m_server->openConnectionCount(), s.value("serverConnections").toInt());
    } else if (s.contains("mkdir")) {
        QVERIFY(QDir().mkpath(s.value("mkdir").toString()));
    } else if (s.contains("file")) {
        const QString path = s.value("file").toString();
        QFile file(path);
        if (s.contains("write"))
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(s.value("write").toString().toUtf8()) > 0);
        if (s.contains("exists"))
            QCOMPARE(QFile::exists(path), s.value("exists").toBool());
        if (s.contains("nonEmpty"))
            QVERIFY2(QFileInfo(path).size() > 0, qPrintable(path));
    } else if (s.contains("tls")) {
        QSslSocket socket;
        socket.setPeerVerifyMode(QSslSocket::VerifyNone);
        socket.connectToHostEncrypted(QStringLiteral("127.0.0.1"), quint16(var("PORT")));
        QVERIFY2(socket.waitForEncrypted(10000), qPrintable(socket.errorString()));
        socket.write("<SRNT><API>6.1</API><Request>" + s.value("tls").toString().toUtf8()
                     + "</Request></SRNT>");
        QByteArray received;
        const auto answered = [&] { return (received += socket.readAll()).contains("</Error>"); };
        QVERIFY(QTest::qWaitFor(answered, 10000));
        QVERIFY2(received.contains(s.value("reply").toString().toUtf8()), received.constData());
        QVERIFY(!received.contains("VoicemailMessageAudio") && !received.contains("<RebrandingPack>"));
    } else if (s.value("check") == "pcmWave") {
        checkPcmWave(s.value("path").toString());
    } else if (s.value("check") == "zip") {
        checkZip(s.value("path").toString());
    } else if (s.value("check") == "localServer") {
        checkLocalServer(cli(s));
    } else {
        QVERIFY2(s.contains("comment"), qPrintable("unknown step " + where));
    }
}

void tst_CliPbxSim::checkPcmWave(const QString& path)
{
    // At most 30 s of the message, each 20 ms GSM frame decoded to 160
    // samples of 16-bit PCM.
    const int frames = var("frames");
    QCOMPARE(var("seconds"), qMin(var("duration"), 30));
    QCOMPARE(frames, var("seconds") * 50);
    QVERIFY(frames > 0);
    QCOMPARE(QFileInfo(path).size(), qint64(44 + 320 * frames));
    const WaveFileParser wave(path);
    QVERIFY(wave.isValidWavFile());
    // PCM, 8 kHz, 16 bits, mono
    QCOMPARE(QList<uint>({wave.getAudioFormat(), wave.getSampleRate(), wave.getBitsPerSample(),
                          wave.getNumChannels(), wave.getDataSize()}),
             QList<uint>({1, 8000, 16, 1, uint(320 * frames)}));

    // The simulator's steady tone (300 to 700 Hz) comes out again, which a
    // GSM stream packed or read in the wrong frame order would not give.
    QFile audio(path);
    QVERIFY(audio.open(QIODevice::ReadOnly) && audio.seek(44));
    const QByteArray pcm = audio.readAll();
    const int count = pcm.size() / 2;
    double power = 0;
    int crossings = 0;
    for (int i = 0; i < count; ++i) {
        const qint16 sample = qFromLittleEndian<qint16>(pcm.constData() + 2 * i);
        power += double(sample) * sample;
        if (i > 0 && (sample < 0) != (qFromLittleEndian<qint16>(pcm.constData() + 2 * i - 2) < 0))
            ++crossings;
    }
    const double rms = std::sqrt(power / count);
    const double hz = crossings / 2.0 / (count / 8000.0);
    QVERIFY2(rms > 4000 && rms < 7000, qPrintable(QString::number(rms)));
    QVERIFY2(hz > 290 && hz < 710, qPrintable(QString::number(hz)));
}

void tst_CliPbxSim::checkZip(const QString& path)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray zip = file.readAll();
    QCOMPARE(zip.size(), var("bytes"));
    QCOMPARE(QString(QCryptographicHash::hash(zip, QCryptographicHash::Md5).toHex()),
             m_vars["md5"].toString());
    // A local header first, the end record last, which counts the entries of
    // a central directory that ends where the record starts.
    QVERIFY(zip.size() > 22 && zip.startsWith("PK\x03\x04"));
    const char* end = zip.constData() + zip.size() - 22;
    QCOMPARE(QByteArray(end, 4), QByteArray("PK\x05\x06"));
    QCOMPARE(qFromLittleEndian<quint16>(end + 10), quint16(2));
    const quint32 dirSize = qFromLittleEndian<quint32>(end + 12);
    const quint32 dirOffset = qFromLittleEndian<quint32>(end + 16);
    QCOMPARE(qint64(dirOffset) + dirSize, qint64(zip.size() - 22));
    QCOMPARE(zip.mid(int(dirOffset), 4), QByteArray("PK\x01\x02"));
    QVERIFY(zip.mid(int(dirOffset)).contains("branding.json"));
}

void tst_CliPbxSim::checkLocalServer(ToolProcess& cli)
{
    QTcpSocket app;
    app.connectToHost(QStringLiteral("127.0.0.1"), quint16(var("appPort")));
    QVERIFY(app.waitForConnected(5000));
    // The library takes the connection on its own thread; until it has, a
    // message is not for this application. Ask again until one arrives.
    QByteArray received;
    const auto arrived = [&](const char* text) { return (received += app.readAll()).contains(text); };
    for (int attempt = 0; attempt < 20 && !received.contains("</ServiceStatusList>"); ++attempt) {
        cli.sendLine(
            QStringLiteral("{\"call\":\"getServiceStatus\",\"args\":[],\"id\":%1}").arg(attempt).toUtf8());
        const auto mine = [&](const QJsonObject& o) { return o.contains("id") && o.value("id") == attempt; };
        QCOMPARE(cli.take(mine, 10000).value("result"), QJsonValue(true));
        (void)QTest::qWaitFor([&] { return arrived("</ServiceStatusList>"); }, 1000);
    }
    // Chat events may come first: the simulated chat server is not there.
    QVERIFY2(received.contains("<SRNT><API>6.1</API><ServiceStatusList>"), received.constData());
    // Logging out is told to the application as well.
    cli.sendLine(R"({"call":"logout","args":[],"id":"out"})");
    QVERIFY(QTest::qWaitFor([&] { return arrived("<Event><Logout><Reason>"); }, 10000));
}

QTEST_GUILESS_MAIN(tst_CliPbxSim)
#include "tst_clipbxsim.moc"
