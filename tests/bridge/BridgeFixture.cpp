#include "BridgeFixture.h"

#include "bridge/JNIServer.h"
#include "bridge/JvmLoader.h"
#include "LogCapture.h"

#include <QFile>

QString BridgeFixture::call(const QString &command, const QString &arg)
{
    JNIServer *server = JvmLoader::createdJavaVM() ? JNIServer::instance() : nullptr;
    return server ? server->getLog(QStringLiteral("fixture ") + command + u'\n' + arg) : QString();
}

QString BridgeFixture::startJvm(const QString &home, bool remote, bool portMapping)
{
    qputenv("HOME", QFile::encodeName(home));
    LogCapture log;
    JNIServer::initWithRemoteEnabled(remote, portMapping);
    const bool available = JNIServer::instance() && JNIServer::instance()->isAvailable();
    return available ? QString() : QStringLiteral("no JVM: ") + log.text();
}

QStringList BridgeFixture::nonEmptyAnswers(JNIServer *server)
{
    const QString text = QStringLiteral("x");
    server->stop();
    server->quit();
    server->initialized();
    server->setDefaultPort(45631);
    server->setConverterMaxWidth(1);
    server->setConverterMaxHeight(1);
    server->converterResetQueue();
    server->setComputerName(text);
    server->setPasswordDigest(QString());
    server->setConverterFFMpegPath(text);
    server->setConverterFaacPath(text);
    server->setConverterMuxerPath(text);
    server->setFontSize(12);
    server->setDisableEmbeddedSubtitlesIfNoLanguageMatches(true);
    server->setDefaultCharset(text);
    server->setFontFamilyName(text);
    server->setPreferredLanguages({text});
    server->clearLog(text);
    server->setEnableRemote(true);
    server->setEnablePortMapping(true);
    server->retry();
    server->testConnection();
    QStringList wrong;
    const auto expectEmpty = [&](bool empty, const char *name) {
        if (!empty)
            wrong << QLatin1String(name);
    };
    expectEmpty(server->start() == 0, "start");
    expectEmpty(!server->isRunning(), "isRunning");
    expectEmpty(server->getDefaultCharset().isNull(), "getDefaultCharset");
    expectEmpty(server->getFontFamilyName().isNull(), "getFontFamilyName");
    expectEmpty(server->getLog(text).isNull(), "getLog");
    expectEmpty(server->getLastConversionLog().isNull(), "getLastConversionLog");
    expectEmpty(server->getConverterQueueAsJSON().isNull(), "getConverterQueueAsJSON");
    expectEmpty(server->getAvailableEncodings().isEmpty(), "getAvailableEncodings");
    expectEmpty(server->getAvailableFontFamilyNames().isEmpty(), "getAvailableFontFamilyNames");
    expectEmpty(server->getAvailableLanguages().isEmpty(), "getAvailableLanguages");
    expectEmpty(!server->getRemoteManagerState().has_value(), "getRemoteManagerState");
    return wrong;
}
