// The parts of the facade that need no Java: the computer name, the local
// addresses, and the whole facade when no Java runtime can be started.
#include "LogCapture.h"
#include "ServerTestSupport.h"
#include "bridge/JNIServer.h"
#include "platform/Resources.h"
#include "server/LocalIP.h"

#include <QHostAddress>
#include <QHostInfo>
#include <QSignalSpy>

class TestServerHost : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;

private slots:
    void initTestCase() { ServerTest::useTemporaryHome(m_home); }

    void computerName_data()
    {
        QTest::addColumn<QByteArray>("content"); // null: no machine-info file
        QTest::addColumn<QString>("expected");   // null: the host name
        QTest::newRow("double quotes") << QByteArray("PRETTY_HOSTNAME=\"Living Room \\\"TV\\\"\"\n")
                                       << QStringLiteral("Living Room \"TV\"");
        QTest::newRow("single quotes") << QByteArray("ICON_NAME=computer-laptop\nPRETTY_HOSTNAME='B\xC3\xBCro \\ 2'\n")
                                       << QStringLiteral("B\u00fcro \\ 2");
        QTest::newRow("last wins") << QByteArray("PRETTY_HOSTNAME=One\r\nPRETTY_HOSTNAME=\"Two \xF0\x9F\x98\x80\"\r\n")
                                   << QStringLiteral("Two \U0001F600");
        QTest::newRow("commented out") << QByteArray("#PRETTY_HOSTNAME=Hidden\n") << QString();
        QTest::newRow("empty quotes") << QByteArray("PRETTY_HOSTNAME=\"\"\n") << QString();
        QTest::newRow("unterminated") << QByteArray("PRETTY_HOSTNAME=\"Open") << QStringLiteral("Open");
        QTest::newRow("binary") << QByteArray("\0\xff\xfe=\n\n=", 7) << QString();
        QTest::newRow("no file") << QByteArray() << QString();
    }

    void computerName()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, expected);
        QFile file(m_home.filePath(QStringLiteral("machine-info")));
        file.remove();
        QVERIFY(content.isNull() || (file.open(QIODevice::WriteOnly) && file.write(content) == content.size()));
        file.close();
        Server::setMachineInfoPath(file.fileName());
        QCOMPARE(Server::computerName(), expected.isNull() ? QHostInfo::localHostName() : expected);
    }

    void thisMachine()
    {
        Server::setMachineInfoPath(QString());
        const QStringList addresses = LocalIP::localIPs();
        qInfo() << "computerName:" << Server::computerName() << "localIPs:" << addresses;
        QVERIFY(!Server::computerName().isEmpty());
        for (const QString &address : addresses)
            QVERIFY2(QHostAddress(address).protocol() == QAbstractSocket::IPv4Protocol, qPrintable(address));
    }

    // With no runtime to start, the facade is still a settings store, and
    // every list it shows is empty but for "None".
    void withoutJava()
    {
        QTemporaryDir empty;
        Resources::setFolder(empty.path());
        LogCapture log;
        Server *server = Server::instance();
        QVERIFY(server && !JNIServer::instance()->isAvailable() && log.contains(QStringLiteral("Missing file")));
        QSignalSpy running(server, &Server::runningChanged);
        server->setRunning(true);
        QCOMPARE(running.count(), 1);
        QCOMPARE(Defaults::standard().objectForKey(QStringLiteral("serverRunning")), QVariant(true));
        QVERIFY(!server->isRunning() && server->availableEncodings().isEmpty() && server->fontFamilyName().isNull());
        QCOMPARE(server->availableLanguages(), QStringList({"None"}));
        QVERIFY(!Defaults::standard().contains(QStringLiteral("SubtitleDefaultCharset"))); // nothing to write back

        log.clear();
        Server::releaseInstance();
        QCOMPARE(log.lines(), QStringList({"Server Dealloc"}));
    }
};

QTEST_GUILESS_MAIN(TestServerHost)
#include "tst_server_host.moc"
