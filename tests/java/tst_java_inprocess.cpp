// The server jar hosted in this process through the controller's own bridge: its launch
// options (agent included), its natives and its calls, against the real resource folder.
#include "bridge/JNIServer.h"

#include <QTemporaryDir>
#include <QtTest>

class TestJavaInProcess : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;

private slots:
    void serverRunsAndCallsBackThroughTheNatives()
    {
        qputenv("HOME", m_home.path().toUtf8());
        JNIServer::initWithRemoteEnabled(true, false);
        JNIServer *server = JNIServer::instance();
        QVERIFY2(server && server->isAvailable(), qPrintable(server ? server->failureReason() : QString()));
        int updates = 0;
        QList<bool> results;
        server->setTarget(this);
        server->setUpdateSelector([&] { ++updates; });
        server->setConnectionTestEndedSelector([&](bool passed) { results.append(passed); });

        server->setDefaultPort(0);
        const int port = server->start();
        QVERIFY(port > 0 && server->isRunning());
        QVERIFY(QFile::exists(m_home.path() + QStringLiteral("/Library/Application Support/QuillonServer/remote-pin.txt")));
        // Java calls the natives from its own threads; the bridge brings them here.
        QTRY_VERIFY(updates > 0);
        QTRY_VERIFY(server->getRemoteManagerState() && server->getRemoteManagerState()->testConnectionVisible());
        server->testConnection();
        QTRY_COMPARE(results, QList<bool>({true}));

        server->stop();
        QVERIFY(!server->isRunning());
    }
};

QTEST_GUILESS_MAIN(TestJavaInProcess)
#include "tst_java_inprocess.moc"
