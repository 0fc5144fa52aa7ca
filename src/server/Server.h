#pragma once

#include "bridge/Encoding.h"
#include "platform/ValidationError.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariant>

// The one object through which the user interface sees the streaming
// server, a process-wide singleton. Every setting lives in the preferences
// store (read afresh by every getter, never cached here); most setters push
// their value into the Java server at once. `running` is the Java server's
// live state, followed by a one-second poll.
//
// Main thread only. Java is reached through JNIServer; when Java cannot be
// reached every push is dropped and every question to Java gets the empty
// answer (see JNIServer.h), so the facade still works as a settings store.
class Server : public QObject
{
    Q_OBJECT

    Q_PROPERTY(bool running READ isRunning WRITE setRunning NOTIFY runningChanged)
    Q_PROPERTY(QString startFailure READ startFailure NOTIFY startFailureChanged)

    Q_PROPERTY(bool listenOnCustomPort READ listenOnCustomPort WRITE setListenOnCustomPort NOTIFY listenOnCustomPortChanged)
    Q_PROPERTY(int customPort READ customPort WRITE setCustomPort NOTIFY customPortChanged)
    Q_PROPERTY(bool remoteSupportEnabled READ remoteSupportEnabled WRITE setRemoteSupportEnabled NOTIFY remoteSupportEnabledChanged)
    Q_PROPERTY(bool portMappingEnabled READ portMappingEnabled WRITE setPortMappingEnabled NOTIFY portMappingEnabledChanged)
    Q_PROPERTY(int maximalWidth READ maximalWidth WRITE setMaximalWidth NOTIFY maximalWidthChanged)
    Q_PROPERTY(int maximalHeight READ maximalHeight WRITE setMaximalHeight NOTIFY maximalHeightChanged)
    Q_PROPERTY(QString codec READ codec WRITE setCodec NOTIFY codecChanged)
    Q_PROPERTY(int maximalWidthMin READ maximalWidthMin CONSTANT)
    Q_PROPERTY(int maximalWidthMax READ maximalWidthMax CONSTANT)
    Q_PROPERTY(int maximalHeightMin READ maximalHeightMin CONSTANT)
    Q_PROPERTY(int maximalHeightMax READ maximalHeightMax CONSTANT)

    Q_PROPERTY(bool requiresPassword READ requiresPassword WRITE setRequiresPassword NOTIFY requiresPasswordChanged)
    Q_PROPERTY(QString passwordPlaceholder READ passwordPlaceholder NOTIFY passwordPlaceholderChanged)

    Q_PROPERTY(Encoding defaultEncoding READ defaultEncoding WRITE setDefaultEncoding NOTIFY defaultEncodingChanged)
    Q_PROPERTY(QString fontFamilyName READ fontFamilyName WRITE setFontFamilyName NOTIFY fontFamilyNameChanged)
    Q_PROPERTY(QString preferredLanguage1 READ preferredLanguage1 WRITE setPreferredLanguage1 NOTIFY preferredLanguage1Changed)
    Q_PROPERTY(QString preferredLanguage2 READ preferredLanguage2 WRITE setPreferredLanguage2 NOTIFY preferredLanguage2Changed)
    Q_PROPERTY(QString preferredLanguage3 READ preferredLanguage3 WRITE setPreferredLanguage3 NOTIFY preferredLanguage3Changed)
    Q_PROPERTY(QString preferredLanguage4 READ preferredLanguage4 WRITE setPreferredLanguage4 NOTIFY preferredLanguage4Changed)
    Q_PROPERTY(bool disableEmbeddedSubtitlesIfNoLanguageMatches READ disableEmbeddedSubtitlesIfNoLanguageMatches
                   WRITE setDisableEmbeddedSubtitlesIfNoLanguageMatches NOTIFY disableEmbeddedSubtitlesIfNoLanguageMatchesChanged)
    Q_PROPERTY(int fontSize READ fontSize WRITE setFontSize NOTIFY fontSizeChanged)

public:
    static constexpr int kStandardPort = 45631;

    // The singleton, created (and the Java server with it) on the first call.
    // Needs the QCoreApplication. Once the application has quit (or after
    // releaseInstance) it stays gone: nullptr, so that nothing restarts the
    // server while the process ends.
    static Server *instance();
    // Frees the singleton as the application's end does ("Server Dealloc").
    // Neither stops the server nor touches JNIServer.
    static void releaseInstance();

    // The saved wish "serverRunning"; absent means running. Does not create
    // the singleton.
    static bool preferencesIsRunning();

    // ---- lifecycle and running state ----
    bool isRunning() const; // asks Java every time
    void setRunning(bool wanted);
    void start();
    void stop();
    void checkRunning();
    // Why the last start failed, in words for the user; empty once the
    // server runs, after a stop request, and before any failed start.
    QString startFailure() const { return m_startFailure; }
    void checkUserDefaults();
    void setCommandsPath();
    void updateConverterSettings();
    void updateSubtitleSettings();

    // PRETTY_HOSTNAME from the machine-info file when set, else the host name.
    static QString computerName();
    // "/etc/machine-info" unless a test points elsewhere (empty: back to it).
    static void setMachineInfoPath(const QString &path);

    // ---- port, remote access, converter ----
    bool listenOnCustomPort() const;
    void setListenOnCustomPort(bool listen);
    int customPort() const; // a stored value below 1 reads as the standard port
    void setCustomPort(int port);
    void setDefaultPort(); // pushes the custom or the standard port
    int port() const; // the custom port when chosen, else the standard one

    // The web player: "http://localhost:port/" for this computer's browser,
    // and the address other devices use (the first local address, else the
    // computer name; a name that cannot be a host gives way to the host name).
    QUrl localWebPlayerUrl() const;
    QUrl webPlayerUrl() const;
    bool remoteSupportEnabled() const;
    void setRemoteSupportEnabled(bool enabled);
    bool portMappingEnabled() const;
    void setPortMappingEnabled(bool enabled);
    int maximalWidth() const; // only an absent key reads as the default
    void setMaximalWidth(int width);
    int maximalHeight() const;
    void setMaximalHeight(int height);
    QString codec() const;
    void setCodec(const QString &codec); // a null string removes the choice
    Q_INVOKABLE QStringList codecValues() const;

    int maximalWidthMin() const { return 300; }
    int maximalWidthMax() const { return 640; }
    int maximalHeightMin() const { return 200; }
    int maximalHeightMax() const { return 480; }
    // To be asked before the setters, which take any value. An invalid
    // (empty) proposal is valid; `error` may be null.
    bool validateMaximalWidth(const QVariant &proposed, ValidationError *error) const;
    bool validateMaximalHeight(const QVariant &proposed, ValidationError *error) const;

    // ---- password ----
    bool requiresPassword() const;
    void setRequiresPassword(bool required);
    // Stores the digest and the length of `password` (null: no password),
    // never the password itself, and tells Java.
    void setPassword(const QString &password);
    QString passwordDigest() const; // null when no password is set
    void setPasswordDigest(const QString &digest);
    void setPasswordLength(int length);
    // Null (no password), a row of asterisks, or empty for a negative length.
    QString passwordPlaceholder() const;
    void setPasswordJNI();

    // ---- subtitles ----
    QList<Encoding> availableEncodings() const;
    Encoding defaultEncoding() const;
    void setDefaultEncoding(const Encoding &encoding);
    Q_INVOKABLE QStringList availableFontFamilyNames() const;
    QString fontFamilyName() const;
    void setFontFamilyName(const QString &name);
    Q_INVOKABLE QStringList availableLanguages() const; // "None" first
    QString preferredLanguageForIndex(int index) const; // 1..4; "None" when unset
    void setPreferredLanguage(const QString &language, int index);
    QString preferredLanguage1() const { return preferredLanguageForIndex(1); }
    QString preferredLanguage2() const { return preferredLanguageForIndex(2); }
    QString preferredLanguage3() const { return preferredLanguageForIndex(3); }
    QString preferredLanguage4() const { return preferredLanguageForIndex(4); }
    void setPreferredLanguage1(const QString &language) { setPreferredLanguage(language, 1); }
    void setPreferredLanguage2(const QString &language) { setPreferredLanguage(language, 2); }
    void setPreferredLanguage3(const QString &language) { setPreferredLanguage(language, 3); }
    void setPreferredLanguage4(const QString &language) { setPreferredLanguage(language, 4); }
    void updatePreferredLanguages();
    bool disableEmbeddedSubtitlesIfNoLanguageMatches() const;
    void setDisableEmbeddedSubtitlesIfNoLanguageMatches(bool disable);
    Q_INVOKABLE QList<int> availableFontSizes() const;
    int fontSize() const;
    void setFontSize(int size);

    ~Server() override;

signals:
    void runningChanged();
    void startFailureChanged();
    // A start the user asked for (setRunning(true)) failed, for `reason`.
    void requestedStartFailed(const QString &reason);
    void listenOnCustomPortChanged();
    void customPortChanged();
    void remoteSupportEnabledChanged();
    void portMappingEnabledChanged();
    void maximalWidthChanged();
    void maximalHeightChanged();
    void codecChanged();
    void requiresPasswordChanged();
    void passwordPlaceholderChanged();
    void defaultEncodingChanged();
    void fontFamilyNameChanged();
    void preferredLanguage1Changed();
    void preferredLanguage2Changed();
    void preferredLanguage3Changed();
    void preferredLanguage4Changed();
    void disableEmbeddedSubtitlesIfNoLanguageMatchesChanged();
    void fontSizeChanged();

private:
    Server();
    void init();
    bool validateRange(const QVariant &proposed, int min, int max, ValidationError *error) const;

    void setStartFailure(const QString &reason);

    bool m_lastRunningState = false;
    QString m_startFailure;
};

// "100%": how the font sizes are shown.
QString withPercent(int number);
