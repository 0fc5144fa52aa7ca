#include "server/Server.h"

#include "bridge/JNIServer.h"
#include "platform/Defaults.h"
#include "platform/IntValue.h"
#include "platform/DelayedCall.h"
#include "platform/Resources.h"
#include "platform/SystemLog.h"
#include "server/LocalIP.h"
#include "server/PasswordDigest.h"

#include <QCoreApplication>
#include <QFile>
#include <QRegularExpression>
#include <QSysInfo>

#include <cmath>
#include <limits>

#include <unistd.h>

namespace {
const QString kServerRunning = QStringLiteral("serverRunning");
const QString kListenOnCustomPort = QStringLiteral("ListenOnCustomPort");
const QString kCustomPort = QStringLiteral("CustomPort");
const QString kRemoteSupportEnabled = QStringLiteral("RemoteSupportEnabled");
const QString kPortMappingEnabled = QStringLiteral("PortMappingEnabled");
const QString kMaximalWidth = QStringLiteral("ConverterMaximalWidth");
const QString kMaximalHeight = QStringLiteral("ConverterMaximalHeight");
const QString kCodec = QStringLiteral("ConverterCodec");
const QString kRequiresPassword = QStringLiteral("requiresPassword");
const QString kPasswordDigest = QStringLiteral("passwordDigest");
const QString kPasswordLength = QStringLiteral("passwordLength");
const QString kLegacyPassword = QStringLiteral("password");
const QString kDefaultCharset = QStringLiteral("SubtitleDefaultCharset");
const QString kFontFamilyName = QStringLiteral("SubtitleFontFamilyName");
const QString kDisableEmbedded = QStringLiteral("DisableEmbeddedSubtitlesIfNoLanguageMatches");
const QString kFontSize = QStringLiteral("SubtitleFontSize");
const QString kNone = QStringLiteral("None");

const int kPollIntervalMs = 1000;
const int kDefaultWidth = 480;
const int kDefaultHeight = 320;
const int kDefaultFontSize = 100;
// A damaged store must not make the placeholder allocate gigabytes.
const int kMaxPlaceholderLength = 4096;

Server *s_instance = nullptr;
bool s_released = false;
QString s_machineInfoPath;

Defaults &store()
{
    return Defaults::standard();
}

// JNIServer's safe behaviour covers an unreachable Java; only a missing
// singleton (after the application's end) is left to check.
JNIServer *java()
{
    return JNIServer::instance();
}

QString preferredLanguageKey(int index)
{
    return QStringLiteral("SubtitlePreferredLanguage%1").arg(index);
}

// One value of a shell-style assignment as systemd writes /etc/machine-info:
// double quotes with backslash escapes, single quotes literal, or bare.
QString unquotedValue(QStringView text)
{
    text = text.trimmed();
    QString value;
    QChar quote;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (quote == QLatin1Char('\'')) {
            if (c == quote)
                quote = QChar();
            else
                value += c;
        } else if (c == QLatin1Char('\\') && i + 1 < text.size()) {
            value += text[++i];
        } else if (quote == QLatin1Char('"')) {
            if (c == quote)
                quote = QChar();
            else
                value += c;
        } else if (c == QLatin1Char('"') || c == QLatin1Char('\'')) {
            quote = c;
        } else if (c.isSpace() || c == QLatin1Char('#')) {
            break; // the rest of an unquoted line is not part of the value
        } else {
            value += c;
        }
    }
    return value;
}

QString prettyHostname()
{
    QFile file(s_machineInfoPath.isEmpty() ? QStringLiteral("/etc/machine-info") : s_machineInfoPath);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    // The file is a few lines; do not let a strange one take the memory.
    const QByteArray bytes = file.read(64 * 1024);
    QString name;
    for (const QByteArray &line : bytes.split('\n')) {
        const QString text = QString::fromUtf8(line).trimmed();
        if (text.startsWith(QLatin1String("PRETTY_HOSTNAME=")))
            name = unquotedValue(QStringView(text).mid(16)); // the last assignment wins, as in a shell
    }
    return name;
}
}

QString withPercent(int number)
{
    return QString::number(number) + QLatin1Char('%');
}

// ---- creation and lifecycle ----

Server *Server::instance()
{
    if (s_instance || s_released)
        return s_instance;
    if (!QCoreApplication::instance()) {
        systemLog(QStringLiteral("Server: no application object; the server cannot be created"));
        return nullptr;
    }
    new Server; // sets s_instance before its start-up runs
    return s_instance;
}

void Server::releaseInstance()
{
    delete s_instance;
}

Server::Server()
{
    s_instance = this;
    init();
}

void Server::init()
{
    // The end of the application frees the facade; it leaves the server
    // running and lets JNIServer end it.
    connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, this, &Server::releaseInstance);

    const bool portMapping = portMappingEnabled();
    const bool remote = remoteSupportEnabled();
    JNIServer::initWithRemoteEnabled(remote, portMapping);

    setCommandsPath();
    updateConverterSettings();
    updateSubtitleSettings();
    if (JNIServer *server = java())
        m_lastRunningState = server->isRunning();
    checkUserDefaults();
    DelayedCall::perform(this, kPollIntervalMs, [this] { checkRunning(); });
    if (JNIServer *server = java())
        server->initialized();
}

Server::~Server()
{
    systemLog(QStringLiteral("Server Dealloc"));
    if (s_instance == this) {
        s_instance = nullptr;
        s_released = true;
    }
}

bool Server::preferencesIsRunning()
{
    if (!store().contains(kServerRunning))
        return true;
    return store().boolForKey(kServerRunning);
}

bool Server::isRunning() const
{
    JNIServer *server = java();
    return server && server->isRunning();
}

void Server::setRunning(bool wanted)
{
    if (!wanted)
        setStartFailure(QString()); // stopped on purpose: nothing to explain
    if (isRunning() != wanted) {
        store().setBool(wanted, kServerRunning);
        if (wanted) {
            start();
            if (!m_startFailure.isEmpty())
                emit requestedStartFailed(m_startFailure);
        } else {
            stop();
        }
    }
    // Observers hear of every request, even an ignored one, and re-read.
    emit runningChanged();
}

void Server::start()
{
    setPasswordJNI();
    JNIServer *server = java();
    if (server)
        server->setComputerName(computerName());
    updateConverterSettings();
    // The running state shows through the poll; a refusal is known at once.
    if (!server || !server->isAvailable()) {
        const QString why = server ? server->failureReason() : QString();
        setStartFailure(why.isEmpty() ? tr("The server cannot run: Java is not available.")
                                      : tr("The server cannot run: %1").arg(why));
        return;
    }
    // The server answers -1 when it cannot bind its port.
    if (server->start() < 0)
        setStartFailure(tr("Port %1 is in use by another program.")
                            .arg(listenOnCustomPort() ? customPort() : kStandardPort));
    else
        setStartFailure(QString());
}

void Server::setStartFailure(const QString &reason)
{
    if (reason == m_startFailure)
        return;
    m_startFailure = reason;
    emit startFailureChanged();
}

void Server::stop()
{
    if (!isRunning())
        return;
    systemLog(QStringLiteral("Stopping server"));
    if (JNIServer *server = java())
        server->stop();
}

void Server::checkRunning()
{
    const bool running = isRunning();
    if (running != m_lastRunningState) {
        m_lastRunningState = running;
        if (running)
            setStartFailure(QString());
        emit runningChanged();
    }
    DelayedCall::perform(this, kPollIntervalMs, [this] { checkRunning(); });
}

void Server::checkUserDefaults()
{
    setDefaultPort();
    if (preferencesIsRunning())
        start();
    else
        stop();
}

void Server::setCommandsPath()
{
    JNIServer *server = java();
    if (!server)
        return;
    const QString ffmpeg = Resources::pathForResource(QStringLiteral("ffmpeg"), QString());
    if (!ffmpeg.isEmpty())
        server->setConverterFFMpegPath(ffmpeg);
    const QString muxer = Resources::pathForResource(QStringLiteral("mp4creator"), QString());
    if (!muxer.isEmpty())
        server->setConverterMuxerPath(muxer);
    const QString faac = Resources::pathForResource(QStringLiteral("faac"), QString());
    if (!faac.isEmpty())
        server->setConverterFaacPath(faac);
}

void Server::updateConverterSettings()
{
    if (JNIServer *server = java()) {
        server->setConverterMaxWidth(maximalWidth());
        server->setConverterMaxHeight(maximalHeight());
    }
}

void Server::updateSubtitleSettings()
{
    setDefaultEncoding(defaultEncoding());
    setFontFamilyName(fontFamilyName());
    updatePreferredLanguages();
    setDisableEmbeddedSubtitlesIfNoLanguageMatches(disableEmbeddedSubtitlesIfNoLanguageMatches());
    setFontSize(fontSize());
}

QString Server::computerName()
{
    const QString pretty = prettyHostname();
    if (!pretty.isEmpty())
        return pretty;
    char name[128] = {};
    if (gethostname(name, sizeof name - 1) != 0)
        return QString();
    return QString::fromUtf8(name);
}

void Server::setMachineInfoPath(const QString &path)
{
    s_machineInfoPath = path;
}

// ---- port, remote access, converter ----

bool Server::listenOnCustomPort() const
{
    return store().boolForKey(kListenOnCustomPort);
}

void Server::setListenOnCustomPort(bool listen)
{
    store().setBool(listen, kListenOnCustomPort);
    setDefaultPort();
    emit listenOnCustomPortChanged();
}

int Server::customPort() const
{
    const qint64 port = store().integerForKey(kCustomPort);
    if (port < 1 || port > std::numeric_limits<int>::max())
        return kStandardPort;
    return int(port);
}

void Server::setCustomPort(int port)
{
    store().setInteger(port, kCustomPort);
    setDefaultPort();
    emit customPortChanged();
}

void Server::setDefaultPort()
{
    if (JNIServer *server = java())
        server->setDefaultPort(port());
}

int Server::port() const
{
    return listenOnCustomPort() ? customPort() : kStandardPort;
}

QUrl Server::localWebPlayerUrl() const
{
    return QUrl(QStringLiteral("http://localhost:%1/").arg(port()));
}

QUrl Server::webPlayerUrl() const
{
    QString host;
    const QStringList addresses = LocalIP::localIPs();
    if (!addresses.isEmpty()) {
        host = addresses.first();
    } else {
        // A pretty name ("Anna's Laptop") is no host name.
        static const QRegularExpression hostName(QStringLiteral("^[A-Za-z0-9]([A-Za-z0-9.-]*[A-Za-z0-9])?$"));
        host = computerName();
        if (!hostName.match(host).hasMatch())
            host = QSysInfo::machineHostName();
    }
    QUrl url;
    url.setScheme(QStringLiteral("http"));
    url.setHost(host);
    url.setPort(port());
    url.setPath(QStringLiteral("/"));
    return url;
}

bool Server::remoteSupportEnabled() const
{
    return store().contains(kRemoteSupportEnabled) ? store().boolForKey(kRemoteSupportEnabled) : false;
}

void Server::setRemoteSupportEnabled(bool enabled)
{
    store().setBool(enabled, kRemoteSupportEnabled);
    if (JNIServer *server = java())
        server->setEnableRemote(enabled);
    emit remoteSupportEnabledChanged();
}

bool Server::portMappingEnabled() const
{
    return store().contains(kPortMappingEnabled) ? store().boolForKey(kPortMappingEnabled) : true;
}

void Server::setPortMappingEnabled(bool enabled)
{
    store().setBool(enabled, kPortMappingEnabled);
    if (JNIServer *server = java())
        server->setEnablePortMapping(enabled);
    emit portMappingEnabledChanged();
}

int Server::maximalWidth() const
{
    const QVariant stored = store().objectForKey(kMaximalWidth);
    return stored.isValid() ? intValue(stored) : kDefaultWidth;
}

void Server::setMaximalWidth(int width)
{
    store().setInteger(width, kMaximalWidth);
    if (JNIServer *server = java())
        server->setConverterMaxWidth(width);
    emit maximalWidthChanged();
}

int Server::maximalHeight() const
{
    const QVariant stored = store().objectForKey(kMaximalHeight);
    return stored.isValid() ? intValue(stored) : kDefaultHeight;
}

void Server::setMaximalHeight(int height)
{
    store().setInteger(height, kMaximalHeight);
    if (JNIServer *server = java())
        server->setConverterMaxHeight(height);
    emit maximalHeightChanged();
}

QString Server::codec() const
{
    const QVariant stored = store().objectForKey(kCodec);
    return stored.isValid() ? store().stringForKey(kCodec) : QStringLiteral("X264");
}

void Server::setCodec(const QString &codec)
{
    // Stored only: the Java server is not told.
    if (codec.isNull())
        store().removeObjectForKey(kCodec);
    else
        store().setString(codec, kCodec);
    emit codecChanged();
}

QStringList Server::codecValues() const
{
    return {QStringLiteral("X264"), QStringLiteral("MPEG4")};
}

bool Server::validateMaximalWidth(const QVariant &proposed, ValidationError *error) const
{
    return validateRange(proposed, maximalWidthMin(), maximalWidthMax(), error);
}

bool Server::validateMaximalHeight(const QVariant &proposed, ValidationError *error) const
{
    return validateRange(proposed, maximalHeightMin(), maximalHeightMax(), error);
}

bool Server::validateRange(const QVariant &proposed, int min, int max, ValidationError *error) const
{
    if (!proposed.isValid() || proposed.isNull())
        return true;
    const int value = intValue(proposed);
    if (value >= min && value <= max)
        return true;
    if (error) {
        error->domain = QStringLiteral("Quillon");
        error->code = 0;
        error->description = QString::asprintf("Value must be between %i and %i", min, max);
    }
    return false;
}

// ---- password ----

bool Server::requiresPassword() const
{
    const QVariant stored = store().objectForKey(kRequiresPassword);
    return stored.isValid() && intValue(stored) != 0;
}

void Server::setRequiresPassword(bool required)
{
    store().setBool(required, kRequiresPassword);
    setPasswordJNI();
    emit requiresPasswordChanged();
}

void Server::setPassword(const QString &password)
{
    const QString digest = password.isNull() ? QString() : PasswordDigest::getSHA1(password);
    const int length = saturatedInt(qint64(password.size()));
    setPasswordDigest(digest);
    store().setInteger(length, kPasswordLength);
    setPasswordJNI();
    emit passwordPlaceholderChanged();
}

QString Server::passwordDigest() const
{
    const QVariant stored = store().objectForKey(kPasswordDigest);
    return stored.isValid() ? store().stringForKey(kPasswordDigest) : QString();
}

void Server::setPasswordDigest(const QString &digest)
{
    store().removeObjectForKey(kLegacyPassword);
    if (digest.isNull())
        store().removeObjectForKey(kPasswordDigest);
    else
        store().setString(digest, kPasswordDigest);
}

void Server::setPasswordLength(int length)
{
    store().setInteger(length, kPasswordLength);
    emit passwordPlaceholderChanged();
}

QString Server::passwordPlaceholder() const
{
    const QVariant stored = store().objectForKey(kPasswordLength);
    if (!stored.isValid())
        return QString();
    const int length = intValue(stored);
    if (length == 0)
        return QString();
    if (length < 0)
        return QStringLiteral("");
    return QString(qMin(length, kMaxPlaceholderLength), QLatin1Char('*'));
}

void Server::setPasswordJNI()
{
    // Java only ever sees the digest; without one it requires nothing.
    if (JNIServer *server = java())
        server->setPasswordDigest(requiresPassword() ? passwordDigest() : QString());
}

// ---- subtitles ----

QList<Encoding> Server::availableEncodings() const
{
    JNIServer *server = java();
    return server ? server->getAvailableEncodings() : QList<Encoding>();
}

Encoding Server::defaultEncoding() const
{
    JNIServer *server = java();
    QString charset = store().contains(kDefaultCharset) ? store().stringForKey(kDefaultCharset) : QString();
    if (!store().contains(kDefaultCharset) && server)
        charset = server->getDefaultCharset();
    const QList<Encoding> encodings = availableEncodings();
    for (const Encoding &encoding : encodings) {
        if (encoding.charset() == charset)
            return encoding;
    }
    if (!encodings.isEmpty())
        return encodings.first();
    // The server offers nothing to choose from (or cannot be asked): keep the
    // wanted charset rather than lose the user's choice.
    return charset.isEmpty() ? Encoding() : Encoding(charset, charset);
}

void Server::setDefaultEncoding(const Encoding &encoding)
{
    const QString charset = encoding.charset();
    if (charset.isEmpty())
        return; // nothing to push or keep
    if (JNIServer *server = java())
        server->setDefaultCharset(charset);
    store().setString(charset, kDefaultCharset);
    emit defaultEncodingChanged();
}

QStringList Server::availableFontFamilyNames() const
{
    JNIServer *server = java();
    return server ? server->getAvailableFontFamilyNames() : QStringList();
}

QString Server::fontFamilyName() const
{
    if (store().contains(kFontFamilyName))
        return store().stringForKey(kFontFamilyName);
    JNIServer *server = java();
    return server ? server->getFontFamilyName() : QString();
}

void Server::setFontFamilyName(const QString &name)
{
    if (JNIServer *server = java())
        server->setFontFamilyName(name);
    if (name.isNull())
        store().removeObjectForKey(kFontFamilyName);
    else
        store().setString(name, kFontFamilyName);
    emit fontFamilyNameChanged();
}

QStringList Server::availableLanguages() const
{
    QStringList languages{kNone};
    if (JNIServer *server = java())
        languages += server->getAvailableLanguages();
    return languages;
}

QString Server::preferredLanguageForIndex(int index) const
{
    if (index < 1 || index > 4)
        return kNone;
    const QString key = preferredLanguageKey(index);
    return store().contains(key) ? store().stringForKey(key) : kNone;
}

void Server::setPreferredLanguage(const QString &language, int index)
{
    if (index < 1 || index > 4)
        return;
    const QString key = preferredLanguageKey(index);
    if (language.isNull() || language == kNone)
        store().removeObjectForKey(key);
    else
        store().setString(language, key);
    updatePreferredLanguages();
    switch (index) {
    case 1: emit preferredLanguage1Changed(); break;
    case 2: emit preferredLanguage2Changed(); break;
    case 3: emit preferredLanguage3Changed(); break;
    default: emit preferredLanguage4Changed(); break;
    }
}

void Server::updatePreferredLanguages()
{
    QStringList languages;
    for (int index = 1; index <= 4; ++index) {
        const QString key = preferredLanguageKey(index);
        if (store().contains(key))
            languages << store().stringForKey(key);
    }
    if (JNIServer *server = java())
        server->setPreferredLanguages(languages);
}

bool Server::disableEmbeddedSubtitlesIfNoLanguageMatches() const
{
    return store().boolForKey(kDisableEmbedded);
}

void Server::setDisableEmbeddedSubtitlesIfNoLanguageMatches(bool disable)
{
    store().setBool(disable, kDisableEmbedded);
    if (JNIServer *server = java())
        server->setDisableEmbeddedSubtitlesIfNoLanguageMatches(disable);
    emit disableEmbeddedSubtitlesIfNoLanguageMatchesChanged();
}

QList<int> Server::availableFontSizes() const
{
    return {90, 100, 110, 120, 130, 140, 150};
}

int Server::fontSize() const
{
    const QVariant stored = store().objectForKey(kFontSize);
    return stored.isValid() ? intValue(stored) : kDefaultFontSize;
}

void Server::setFontSize(int size)
{
    store().setInteger(size, kFontSize);
    if (JNIServer *server = java())
        server->setFontSize(size);
    emit fontSizeChanged();
}
