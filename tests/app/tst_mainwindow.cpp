// The preferences window's controller against the fixture server: the tab
// protocol, the close warning, the password sheet, validation of the port
// and the frame size, the settings bound both ways, start at login.
#include "BridgeFixture.h"
#include "LogCapture.h"
#include "ShellTestSupport.h"
#include "WindowController.h"
#include "bridge/JNIServer.h"
#include "platform/Defaults.h"
#include "preferences/MainWindowController.h"
#include "preferences/StartAtLogin.h"
#include "preferences/TabController.h"
#include "server/PasswordDigest.h"
#include "server/Server.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTabWidget>
#include <QtTest>

namespace {

QStringList g_tabEvents;
QString g_startTab;

class FakeTab : public QObject, public TabController
{
public:
    FakeTab(const QString &name, QObject *parent) : QObject(parent), m_name(name) {}
    void onShow() override { g_tabEvents << m_name + QStringLiteral(".onShow"); }
    void onHide() override { g_tabEvents << m_name + QStringLiteral(".onHide"); }
    void windowWillClose() override { g_tabEvents << m_name + QStringLiteral(".windowWillClose"); }

private:
    QString m_name;
};

const QString kSkip = QStringLiteral("skipCloseWarning");
const QString kPortMessage = QStringLiteral("Port must be an integer value in range from 1000 to 55000");

struct Window {
    QPointer<WindowController> controller;
    MainWindowController *main = nullptr;
    QWidget *window = nullptr;

    template<class T>
    T *find(const char *name) const { return window->findChild<T *>(QLatin1String(name)); }
    QWidget *page(const char *name) const { return find<QWidget>(name); }
};

Window openWindow()
{
    Window w;
    w.controller = new WindowController(QStringLiteral("Main"));
    w.controller->showWindow();
    w.window = w.controller->window();
    w.main = qobject_cast<MainWindowController *>(w.controller->mainController());
    return w;
}

// Closes the window, past the warning, and waits for its controllers to go.
bool closeWindow(Window &w)
{
    if (!w.controller)
        return true;
    const QVariant skip = Defaults::standard().objectForKey(kSkip);
    Defaults::standard().setBool(true, kSkip);
    w.window->close();
    QDeadlineTimer deadline(3000);
    while (w.controller && !deadline.hasExpired())
        QTest::qWait(10);
    Defaults::standard().setObject(skip, kSkip);
    return !w.controller;
}

void enter(QLineEdit *field, const QString &text)
{
    field->setFocus();
    field->selectAll();
    if (text.isEmpty())
        QTest::keyClick(field, Qt::Key_Backspace);
    else
        QTest::keyClicks(field, text);
    QTest::keyClick(field, Qt::Key_Return);
}

// On the box itself: a check box reacts only where its box and text are.
void click(QCheckBox *box)
{
    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(6, box->height() / 2));
}

int visibleDialogs(QWidget *window)
{
    int count = 0;
    for (QDialog *dialog : window->findChildren<QDialog *>())
        count += dialog->isVisible() ? 1 : 0;
    return count;
}

}

class TestMainWindow : public QObject
{
    Q_OBJECT

    TestHome m_home;
    LogCapture m_log;
    Server *server() { return Server::instance(); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.setUp());
        MainWindowController::registerLayout();
        QVERIFY(server());
        QVERIFY2(JNIServer::instance()->isAvailable(), qPrintable(m_log.lines().join(QLatin1Char('\n'))));
    }

    void init()
    {
        BridgeFixture::clearRecordedCalls();
        m_log.clear();
    }

    void tabProtocol()
    {
        MainWindowController::addTabSetup([](MainWindowController *controller, QWidget *window) {
            controller->setConversionController(new FakeTab(QStringLiteral("conversion"), window));
            controller->setLogsController(new FakeTab(QStringLiteral("logs"), window));
            if (!g_startTab.isEmpty()) {
                auto *tabs = window->findChild<QTabWidget *>(QStringLiteral("tabView"));
                tabs->setCurrentWidget(window->findChild<QWidget *>(g_startTab));
            }
        });
        g_tabEvents.clear();
        Window w = openWindow();
        QVERIFY(w.main);
        QTabWidget *tabs = w.main->tabView();
        QCOMPARE(w.main->selectedTabId(), QStringLiteral("server"));
        QVERIFY(g_tabEvents.isEmpty());
        // Every tab is there by its identifier.
        for (const char *id : {"server", "sharedFolders", "conversionFolders", "converter", "conversion", "remote", "logs"})
            QVERIFY2(tabs->indexOf(w.page(id)) >= 0, id);

        tabs->setCurrentWidget(w.page("conversion"));
        QCOMPARE(w.main->selectedTabId(), QStringLiteral("conversion"));
        w.main->setSelectedTabId(QStringLiteral("conversion")); // the same again: nothing
        tabs->setCurrentWidget(w.page("logs"));
        tabs->setCurrentWidget(w.page("converter")); // logs are never told of hiding
        tabs->setCurrentWidget(w.page("logs"));
        tabs->setCurrentWidget(w.page("conversion"));
        w.main->setSelectedTabId(QStringLiteral("remote")); // from outside: the view follows
        QCOMPARE(tabs->currentWidget(), w.page("remote"));
        QCOMPARE(g_tabEvents, QStringList({"conversion.onShow", "conversion.onHide", "logs.onShow", "logs.onShow",
                                           "conversion.onShow", "conversion.onHide"}));
        g_tabEvents.clear();
        QVERIFY(closeWindow(w));
        QCOMPARE(g_tabEvents, QStringList({"conversion.windowWillClose"}));

        // The tab the layout selects is announced when the window loads.
        g_tabEvents.clear();
        g_startTab = QStringLiteral("conversion");
        Window again = openWindow();
        QCOMPARE(g_tabEvents, QStringList({"conversion.onShow"}));
        g_startTab.clear();
        QVERIFY(closeWindow(again));
        MainWindowController::clearTabSetups();
    }

    void closeWarning()
    {
        Defaults::standard().removeObjectForKey(kSkip);
        Window w = openWindow();
        w.window->close();
        QVERIFY(w.controller);
        QVERIFY(w.window->isVisible());
        QVERIFY(w.main->closeSheet() && w.main->closeSheet()->isVisible());
        w.window->close(); // while the sheet is up: still one sheet
        QCOMPARE(visibleDialogs(w.window), 1);
        QTest::mouseClick(w.find<QPushButton>("closeSheetButton"), Qt::LeftButton);
        QTRY_VERIFY(!w.controller); // closed, without a second sheet
        QCOMPARE(m_log.count(QStringLiteral("MainWindowController Dealloc")), 1);
        QVERIFY(!Defaults::standard().contains(kSkip));

        // Once per opening: the next window warns again. Its check box
        // turns the warning off for good.
        w = openWindow();
        w.window->close();
        QVERIFY(w.main->closeSheet()->isVisible());
        w.find<QCheckBox>("skipCloseWarningCheckBox")->setChecked(true);
        QTest::mouseClick(w.find<QPushButton>("closeSheetButton"), Qt::LeftButton);
        QTRY_VERIFY(!w.controller);
        QCOMPARE(Defaults::standard().objectForKey(kSkip), QVariant(true));

        w = openWindow();
        w.window->close();
        QTRY_VERIFY(!w.controller); // at once

        // Stored NO warns; the sheet's Escape ends it like its button.
        Defaults::standard().setBool(false, kSkip);
        w = openWindow();
        w.window->close();
        QVERIFY(w.main->closeSheet()->isVisible());
        QTest::keyClick(w.main->closeSheet(), Qt::Key_Escape);
        QTRY_VERIFY(!w.controller);
        QCOMPARE(Defaults::standard().objectForKey(kSkip), QVariant(false));
    }

    void passwordSheet()
    {
        Defaults::standard().removeObjectForKey(QStringLiteral("passwordDigest"));
        Defaults::standard().removeObjectForKey(QStringLiteral("passwordLength"));
        server()->setRequiresPassword(false);
        Window w = openWindow();
        auto *required = w.find<QCheckBox>("requiresPasswordCheckBox");
        auto *placeholder = w.find<QLineEdit>("passwordPlaceholderField");
        QVERIFY(!required->isChecked());
        click(required);
        QVERIFY(server()->requiresPassword());
        QVERIFY(placeholder->text().isEmpty());

        QDialog *sheet = w.main->changePasswordSheet();
        auto *field = w.find<QLineEdit>("changePasswordField");
        QTest::mouseClick(w.find<QPushButton>("changePasswordButton"), Qt::LeftButton);
        QVERIFY(sheet->isVisible());
        QTest::keyClicks(field, QStringLiteral("abc"));
        QCOMPARE(w.main->changePasswordString(), QStringLiteral("abc"));
        BridgeFixture::clearRecordedCalls();
        QTest::mouseClick(w.find<QPushButton>("changePasswordCancelButton"), Qt::LeftButton);
        QVERIFY(!sheet->isVisible());
        QVERIFY(!Defaults::standard().contains(QStringLiteral("passwordDigest")));
        QVERIFY(BridgeFixture::recordedCalls().filter(QStringLiteral("setPasswordDigest")).isEmpty());

        // The text stays for the next opening; confirm stores its digest.
        QTest::mouseClick(w.find<QPushButton>("changePasswordButton"), Qt::LeftButton);
        QCOMPARE(field->text(), QStringLiteral("abc"));
        field->end(false);
        QTest::keyClick(field, Qt::Key_D);
        QTest::sendKeyEvent(QTest::Click, field, Qt::Key_Eacute, QStringLiteral("\u00e9"), Qt::NoModifier);
        QTest::mouseClick(w.find<QPushButton>("changePasswordConfirmButton"), Qt::LeftButton);
        QVERIFY(!sheet->isVisible());
        const QString digest = PasswordDigest::getSHA1(QStringLiteral("abcd\u00e9"));
        QCOMPARE(server()->passwordDigest(), digest);
        QCOMPARE(placeholder->text(), QStringLiteral("*****"));
        QVERIFY(BridgeFixture::recordedCalls().contains(QStringLiteral("setPasswordDigest(%1)").arg(digest)));
        QCOMPARE(w.main->changePasswordString(), QStringLiteral("abcd\u00e9"));

        // Emptied and confirmed: the empty password, not "no password".
        QTest::mouseClick(w.find<QPushButton>("changePasswordButton"), Qt::LeftButton);
        field->selectAll();
        QTest::keyClick(field, Qt::Key_Backspace);
        QVERIFY(!w.main->changePasswordString().isNull());
        QTest::mouseClick(w.find<QPushButton>("changePasswordConfirmButton"), Qt::LeftButton);
        QCOMPARE(server()->passwordDigest(), PasswordDigest::getSHA1(QString()));
        QVERIFY(placeholder->text().isEmpty());
        QVERIFY(closeWindow(w));

        // A new window starts with an empty field.
        w = openWindow();
        QVERIFY(w.main->changePasswordString().isEmpty());
        QVERIFY(w.find<QCheckBox>("requiresPasswordCheckBox")->isChecked());
        QVERIFY(closeWindow(w));
    }

    void customPortValidation_data()
    {
        QTest::addColumn<QVariant>("proposed");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("1023") << QVariant(1023) << false;
        QTest::newRow("1024") << QVariant(1024) << true;
        QTest::newRow("55000") << QVariant(55000) << true;
        QTest::newRow("55001") << QVariant(55001) << false;
        QTest::newRow("1000, named by the message") << QVariant(1000) << false;
        QTest::newRow("text 8080 and letters") << QVariant(QStringLiteral("8080abc")) << true;
        QTest::newRow("text with leading blanks") << QVariant(QStringLiteral("  2000")) << true;
        QTest::newRow("negative text") << QVariant(QStringLiteral("-2000")) << false;
        QTest::newRow("letters first") << QVariant(QStringLiteral("abc8080")) << false;
        QTest::newRow("empty text") << QVariant(QStringLiteral("")) << false;
        QTest::newRow("no value") << QVariant() << false;
        QTest::newRow("huge text") << QVariant(QStringLiteral("99999999999999999999")) << false;
        QTest::newRow("real") << QVariant(4000.9) << true;
    }

    void customPortValidation()
    {
        QFETCH(QVariant, proposed);
        QFETCH(bool, accepted);
        ValidationError error;
        error.code = 7;
        QCOMPARE(MainWindowController::validateCustomPort(proposed, &error), accepted);
        QCOMPARE(MainWindowController::validateCustomPort(proposed, nullptr), accepted);
        if (!accepted) {
            QVERIFY(!error.domain.isNull() && error.domain.isEmpty());
            QCOMPARE(error.code, 0);
            QCOMPARE(error.description, kPortMessage);
        }
    }

    void customPortField()
    {
        server()->setListenOnCustomPort(false);
        Defaults::standard().removeObjectForKey(QStringLiteral("CustomPort"));
        Window w = openWindow();
        auto *listen = w.find<QCheckBox>("listenOnCustomPortCheckBox");
        auto *field = w.find<QLineEdit>("customPortField");
        auto *error = w.find<QLabel>("customPortError");
        QCOMPARE(field->text(), QStringLiteral("45631"));
        QVERIFY(!field->isEnabled());
        click(listen);
        QVERIFY(server()->listenOnCustomPort());
        QVERIFY(field->isEnabled());

        BridgeFixture::clearRecordedCalls();
        enter(field, QStringLiteral("80"));
        QCOMPARE(error->text(), kPortMessage);
        QVERIFY(!Defaults::standard().contains(QStringLiteral("CustomPort")));
        QVERIFY(BridgeFixture::recordedCalls().filter(QStringLiteral("setDefaultPort")).isEmpty());
        enter(field, QString());
        QCOMPARE(error->text(), kPortMessage);
        QVERIFY(!Defaults::standard().contains(QStringLiteral("CustomPort")));

        enter(field, QStringLiteral("8080abc"));
        QCOMPARE(Defaults::standard().objectForKey(QStringLiteral("CustomPort")).toInt(), 8080);
        QCOMPARE(field->text(), QStringLiteral("8080"));
        QVERIFY(error->text().isEmpty());
        QCOMPARE(BridgeFixture::recordedCalls().filter(QStringLiteral("setDefaultPort")),
                 QStringList({"setDefaultPort(8080)"}));
        QCOMPARE(w.main->customPort(), 8080);

        // A change made elsewhere reaches the field.
        QSignalSpy notices(w.main, &MainWindowController::customPortChanged);
        server()->setCustomPort(5000);
        QCOMPARE(field->text(), QStringLiteral("5000"));
        QCOMPARE(notices.count(), 1);
        w.main->setCustomPort(6000);
        QCOMPARE(server()->customPort(), 6000);
        QCOMPARE(field->text(), QStringLiteral("6000"));
        server()->setListenOnCustomPort(false);
        QVERIFY(!listen->isChecked());
        QVERIFY(!field->isEnabled());
        QVERIFY(closeWindow(w));
    }

    void frameSizeFields()
    {
        Defaults::standard().removeObjectForKey(QStringLiteral("ConverterMaximalWidth"));
        Defaults::standard().removeObjectForKey(QStringLiteral("ConverterMaximalHeight"));
        Window w = openWindow();
        auto *width = w.find<QLineEdit>("maximalWidthField");
        auto *height = w.find<QLineEdit>("maximalHeightField");
        auto *widthError = w.find<QLabel>("maximalWidthError");
        auto *heightError = w.find<QLabel>("maximalHeightError");
        QCOMPARE(width->text(), QStringLiteral("480"));
        QCOMPARE(height->text(), QStringLiteral("320"));

        for (const QString &refused : {QStringLiteral("299"), QStringLiteral("641"), QString(), QStringLiteral("wide")}) {
            enter(width, refused);
            QCOMPARE(widthError->text(), QStringLiteral("Value must be between 300 and 640"));
            QVERIFY2(!Defaults::standard().contains(QStringLiteral("ConverterMaximalWidth")), qPrintable(refused));
        }
        enter(width, QStringLiteral("640"));
        QCOMPARE(server()->maximalWidth(), 640);
        QVERIFY(widthError->text().isEmpty());

        enter(height, QStringLiteral("199"));
        QCOMPARE(heightError->text(), QStringLiteral("Value must be between 200 and 480"));
        QVERIFY(!Defaults::standard().contains(QStringLiteral("ConverterMaximalHeight")));
        BridgeFixture::clearRecordedCalls();
        enter(height, QStringLiteral("200"));
        QCOMPARE(server()->maximalHeight(), 200);
        QCOMPARE(BridgeFixture::recordedCalls(), QStringList({"setConverterMaxHeight(200)"}));

        // Shown refused text gives way to a value set elsewhere.
        enter(height, QStringLiteral("1000"));
        QVERIFY(!heightError->text().isEmpty());
        server()->setMaximalHeight(250);
        QCOMPARE(height->text(), QStringLiteral("250"));
        QVERIFY(heightError->text().isEmpty());
        QVERIFY(closeWindow(w));
    }

    void settingsBoundBothWays()
    {
        server()->setCodec(QString());
        server()->setFontSize(100);
        server()->setRemoteSupportEnabled(false);
        server()->setDisableEmbeddedSubtitlesIfNoLanguageMatches(false);
        for (int index = 1; index <= 4; ++index)
            server()->setPreferredLanguage(QStringLiteral("None"), index);
        Window w = openWindow();

        auto *codec = w.find<QComboBox>("codecComboBox");
        QCOMPARE(codec->currentText(), QStringLiteral("X264"));
        QCOMPARE(codec->count(), 2);
        QTest::keyClick(codec, Qt::Key_Down);
        QCOMPARE(server()->codec(), QStringLiteral("MPEG4"));
        server()->setCodec(QStringLiteral("X264"));
        QCOMPARE(codec->currentText(), QStringLiteral("X264"));

        auto *size = w.find<QComboBox>("fontSizeComboBox");
        QStringList sizes;
        for (int i = 0; i < size->count(); ++i)
            sizes << size->itemText(i);
        QCOMPARE(sizes, QStringList({"90%", "100%", "110%", "120%", "130%", "140%", "150%"}));
        QCOMPARE(size->currentText(), QStringLiteral("100%"));
        BridgeFixture::clearRecordedCalls();
        QTest::keyClick(size, Qt::Key_Down);
        QCOMPARE(server()->fontSize(), 110);
        QCOMPARE(BridgeFixture::recordedCalls(), QStringList({"setFontSize(110)"})); // once: no echo
        server()->setFontSize(130);
        QCOMPARE(size->currentText(), QStringLiteral("130%"));

        auto *language = w.find<QComboBox>("preferredLanguage2ComboBox");
        QCOMPARE(language->currentText(), QStringLiteral("None"));
        QCOMPARE(language->count(), 4); // "None" and the server's three
        QTest::keyClick(language, Qt::Key_Down);
        QCOMPARE(server()->preferredLanguage2(), QStringLiteral("English"));
        QCOMPARE(server()->preferredLanguage1(), QStringLiteral("None"));
        server()->setPreferredLanguage4(QStringLiteral("German"));
        QCOMPARE(w.find<QComboBox>("preferredLanguage4ComboBox")->currentText(), QStringLiteral("German"));

        auto *charset = w.find<QComboBox>("subtitleCharsetComboBox");
        QCOMPARE(charset->count(), 2);
        QCOMPARE(charset->currentData().toString(), server()->defaultEncoding().charset());
        charset->setCurrentIndex(0);
        QTest::keyClick(charset, Qt::Key_Down);
        QCOMPARE(server()->defaultEncoding().charset(), QStringLiteral("ISO-8859-1"));

        auto *family = w.find<QComboBox>("fontFamilyComboBox");
        QCOMPARE(family->currentText(), server()->fontFamilyName());
        family->setCurrentIndex(0);
        QTest::keyClick(family, Qt::Key_Down);
        QCOMPARE(server()->fontFamilyName(), QStringLiteral("Monospaced"));

        auto *embedded = w.find<QCheckBox>("disableEmbeddedSubtitlesCheckBox");
        click(embedded);
        QVERIFY(server()->disableEmbeddedSubtitlesIfNoLanguageMatches());
        server()->setDisableEmbeddedSubtitlesIfNoLanguageMatches(false);
        QVERIFY(!embedded->isChecked());

        auto *remote = w.find<QCheckBox>("remoteSupportCheckBox");
        auto *mapping = w.find<QCheckBox>("portMappingCheckBox");
        QVERIFY(!mapping->isEnabled());
        click(remote);
        QVERIFY(server()->remoteSupportEnabled());
        QVERIFY(mapping->isEnabled());
        QVERIFY(mapping->isChecked()); // on unless turned off
        click(mapping);
        QVERIFY(!server()->portMappingEnabled());
        server()->setRemoteSupportEnabled(false);
        QVERIFY(!remote->isChecked());
        QVERIFY(!mapping->isEnabled());

        // The running state and its button.
        auto *status = w.find<QLabel>("serverStatusLabel");
        auto *button = w.find<QPushButton>("startStopServerButton");
        server()->setRunning(false);
        QCOMPARE(status->text(), QStringLiteral("The server is stopped."));
        QTest::mouseClick(button, Qt::LeftButton);
        QVERIFY(server()->isRunning());
        QCOMPARE(status->text(), QStringLiteral("The server is running."));
        QCOMPARE(button->text(), QStringLiteral("Stop Server"));
        QTest::qWait(1100); // a poll pass sees it running (shorter runs go unreported)
        JNIServer::instance()->stop(); // stops by itself: the poll tells the window
        QTRY_COMPARE_WITH_TIMEOUT(status->text(), QStringLiteral("The server is stopped."), 1500);
        QVERIFY(closeWindow(w));
    }

    void startOnLoginThroughTheWindow()
    {
        const QString folder = m_home.filePath(QStringLiteral("autostart"));
        StartAtLogin::setAutostartFolder(folder);
        StartAtLogin::setProgramPath(QStringLiteral("/opt/quillon/bin/quillon-server"));
        Window w = openWindow();
        auto *box = w.find<QCheckBox>("startOnLoginCheckBox");
        QVERIFY(!box->isChecked());

        // No autostart folder: enabling fails, writes nothing, reads unchecked.
        click(box);
        QVERIFY(!box->isChecked());
        QVERIFY(!QFileInfo::exists(folder));
        QVERIFY(!w.main->startOnLogin());

        QVERIFY(QDir().mkpath(folder));
        click(box);
        QVERIFY(box->isChecked());
        QVERIFY(w.main->startOnLogin());
        const QList<StartAtLogin::Entry> entries = StartAtLogin::entries(folder);
        QCOMPARE(entries.size(), 1);
        QCOMPARE(entries.first().path, QStringLiteral("/opt/quillon/bin/quillon-server"));
        QVERIFY(!entries.first().hidden);

        click(box);
        QVERIFY(!box->isChecked());
        QVERIFY(StartAtLogin::entries(folder).isEmpty());
        QVERIFY(closeWindow(w));
        StartAtLogin::setAutostartFolder(QString());
        StartAtLogin::setProgramPath(QString());
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
