// The preferences window's controller against the fixture server.
#include "BridgeFixture.h"
#include "LogCapture.h"
#include "ShellTestSupport.h"
#include "bridge/JNIServer.h"
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
#include <QPushButton>
#include <QTabWidget>

namespace {

QStringList g_tabEvents;
QString g_startTab;

struct FakeTab : QObject, TabController {
    FakeTab(const QString &name, QObject *parent) : QObject(parent), name(name) {}
    void onShow() override { g_tabEvents << name + QStringLiteral(".onShow"); }
    void onHide() override { g_tabEvents << name + QStringLiteral(".onHide"); }
    void windowWillClose() override { g_tabEvents << name + QStringLiteral(".windowWillClose"); }
    const QString name;
};

const QString kSkip = QStringLiteral("skipCloseWarning");
const QString kPortMessage = QStringLiteral("Port must be an integer value in range from 1000 to 55000");

Defaults &defaults() { return Defaults::standard(); }
Server *server() { return Server::instance(); }

struct Window {
    QPointer<WindowController> controller;
    MainWindowController *main = nullptr;
    QWidget *window = nullptr;

    template<class T>
    T *find(const char *name) const { return window->findChild<T *>(QLatin1String(name)); }
    void press(const char *button) const { QTest::mouseClick(find<QPushButton>(button), Qt::LeftButton); }
    bool close() { return closePreferences(controller); }
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

void enter(QLineEdit *field, const QString &text)
{
    field->setFocus();
    field->selectAll();
    QTest::keyClick(field, Qt::Key_Backspace);
    QTest::keyClicks(field, text);
    QTest::keyClick(field, Qt::Key_Return);
}

// Refused text shows the message next to the field and stores nothing.
void enterRefused(QLineEdit *field, QLabel *error, const QString &text, const QString &message, const char *key)
{
    enter(field, text);
    QCOMPARE(error->text(), message);
    QVERIFY2(!defaults().contains(QLatin1String(key)), qPrintable(text));
}

// On the box itself: a check box reacts only where its box and text are.
void click(QCheckBox *box)
{
    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(6, box->height() / 2));
}

QStringList recordedCalls(const char *method)
{
    return BridgeFixture::recordedCalls().filter(QLatin1String(method));
}

}

class TestMainWindow : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    LogCapture m_log;

private slots:
    void initTestCase()
    {
        QVERIFY(useTestHome(m_home));
        MainWindowController::registerLayout();
        QVERIFY(server());
        QVERIFY2(JNIServer::instance()->isAvailable(), qPrintable(m_log.lines().join(QLatin1Char('\n'))));
    }

    void tabProtocol()
    {
        MainWindowController::addTabSetup([](MainWindowController *controller, QWidget *window) {
            controller->setConversionController(new FakeTab(QStringLiteral("conversion"), window));
            controller->setLogsController(new FakeTab(QStringLiteral("logs"), window));
            if (!g_startTab.isEmpty())
                controller->tabView()->setCurrentWidget(window->findChild<QWidget *>(g_startTab));
        });
        g_tabEvents.clear();
        Window w = openWindow();
        QTabWidget *tabs = w.main->tabView();
        QStringList ids;
        for (int i = 0; i < tabs->count(); ++i)
            ids << tabs->widget(i)->objectName();
        QCOMPARE(ids, QStringList({"server", "sharedFolders", "conversionFolders", "converter", "conversion",
                                   "remote", "logs"}));
        QCOMPARE(w.main->selectedTabId(), QStringLiteral("server"));
        QVERIFY(g_tabEvents.isEmpty());

        tabs->setCurrentWidget(w.find<QWidget>("conversion"));
        QCOMPARE(w.main->selectedTabId(), QStringLiteral("conversion"));
        w.main->setSelectedTabId(QStringLiteral("conversion")); // the same again: nothing
        tabs->setCurrentWidget(w.find<QWidget>("logs"));
        tabs->setCurrentWidget(w.find<QWidget>("converter")); // logs are never told of hiding
        tabs->setCurrentWidget(w.find<QWidget>("logs"));
        tabs->setCurrentWidget(w.find<QWidget>("conversion"));
        w.main->setSelectedTabId(QStringLiteral("remote")); // from outside: the view follows
        QCOMPARE(tabs->currentWidget(), w.find<QWidget>("remote"));
        QCOMPARE(g_tabEvents, QStringList({"conversion.onShow", "conversion.onHide", "logs.onShow", "logs.onShow",
                                           "conversion.onShow", "conversion.onHide"}));
        g_tabEvents.clear();
        QVERIFY(w.close());
        QCOMPARE(g_tabEvents, QStringList({"conversion.windowWillClose"}));

        // The tab the layout selects is announced when the window loads.
        g_tabEvents.clear();
        g_startTab = QStringLiteral("conversion");
        w = openWindow();
        QCOMPARE(g_tabEvents, QStringList({"conversion.onShow"}));
        g_startTab.clear();
        QVERIFY(w.close());
        MainWindowController::clearTabSetups();
    }

    void closeWarning()
    {
        defaults().removeObjectForKey(kSkip);
        m_log.clear();
        Window w = openWindow();
        QCOMPARE(w.main->closeSheet()->windowModality(), Qt::WindowModal);
        w.window->close();
        w.window->close(); // while the sheet is up: still one sheet
        QVERIFY(w.controller && w.window->isVisible() && w.main->closeSheet()->isVisible());
        QCOMPARE(w.window->findChildren<QDialog *>().count(), 2); // the two sheets, built once
        w.press("closeSheetButton");
        QTRY_VERIFY(!w.controller); // closed, without a second sheet
        QCOMPARE(m_log.count(QStringLiteral("MainWindowController Dealloc")), 1);
        QVERIFY(!defaults().contains(kSkip));

        // Once per opening: the next window warns again; its check box turns
        // the warning off for good.
        w = openWindow();
        w.window->close();
        auto *skip = w.find<QCheckBox>("skipCloseWarningCheckBox");
        QVERIFY(skip->isVisible());
        QCOMPARE(skip->text(), QStringLiteral("Don't show this again"));
        skip->setChecked(true);
        w.press("closeSheetButton");
        QTRY_VERIFY(!w.controller);
        QCOMPARE(defaults().objectForKey(kSkip), QVariant(true));
        w = openWindow();
        w.window->close();
        QTRY_VERIFY(!w.controller); // at once

        // Stored NO warns; the sheet's Escape ends it like its button.
        defaults().setBool(false, kSkip);
        w = openWindow();
        w.window->close();
        QVERIFY(w.main->closeSheet()->isVisible());
        QTest::keyClick(w.main->closeSheet(), Qt::Key_Escape);
        QTRY_VERIFY(!w.controller);
        QCOMPARE(defaults().objectForKey(kSkip), QVariant(false));
    }

    void passwordSheet()
    {
        defaults().removeObjectForKey(QStringLiteral("passwordDigest"));
        server()->setRequiresPassword(false);
        Window w = openWindow();
        auto *placeholder = w.find<QLineEdit>("passwordPlaceholderField");
        click(w.find<QCheckBox>("requiresPasswordCheckBox"));
        QVERIFY(server()->requiresPassword());
        QVERIFY(placeholder->text().isEmpty() && placeholder->isReadOnly());

        QDialog *sheet = w.main->changePasswordSheet();
        auto *field = w.find<QLineEdit>("changePasswordField");
        QCOMPARE(field->echoMode(), QLineEdit::Password);
        w.press("changePasswordButton");
        QVERIFY(sheet->isVisible());
        QTest::keyClicks(field, QStringLiteral("abc"));
        BridgeFixture::clearRecordedCalls();
        w.press("changePasswordCancelButton");
        QVERIFY(!sheet->isVisible() && !defaults().contains(QStringLiteral("passwordDigest")));
        QVERIFY(recordedCalls("setPasswordDigest").isEmpty());

        // The text stays for the next opening; confirm stores its digest.
        w.press("changePasswordButton");
        QCOMPARE(field->text(), QStringLiteral("abc"));
        field->end(false);
        QTest::sendKeyEvent(QTest::Click, field, Qt::Key_Eacute, QStringLiteral("\u00e9"), Qt::NoModifier);
        w.press("changePasswordConfirmButton");
        QVERIFY(!sheet->isVisible());
        const QString digest = PasswordDigest::getSHA1(QStringLiteral("abc\u00e9"));
        QCOMPARE(server()->passwordDigest(), digest);
        QCOMPARE(placeholder->text(), QStringLiteral("****"));
        QCOMPARE(recordedCalls("setPasswordDigest"), QStringList{QStringLiteral("setPasswordDigest(%1)").arg(digest)});

        // Emptied and confirmed: the empty password, not "no password".
        w.press("changePasswordButton");
        field->selectAll();
        QTest::keyClick(field, Qt::Key_Backspace);
        w.press("changePasswordConfirmButton");
        QCOMPARE(server()->passwordDigest(), PasswordDigest::getSHA1(QString()));
        QVERIFY(placeholder->text().isEmpty());
        QVERIFY(w.close());
    }

    void customPortValidation_data()
    {
        QTest::addColumn<QVariant>("proposed");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("1023") << QVariant(1023) << false;
        QTest::newRow("1024") << QVariant(1024) << true;
        QTest::newRow("55000") << QVariant(55000) << true;
        QTest::newRow("55001") << QVariant(55001) << false;
        QTest::newRow("text 8080 and letters") << QVariant(QStringLiteral("  8080abc")) << true;
        QTest::newRow("letters first") << QVariant(QStringLiteral("abc8080")) << false;
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
        QCOMPARE(error.description, accepted ? QString() : kPortMessage);
        QCOMPARE(error.code, accepted ? 7 : 0);
    }

    void portAndSizeFields()
    {
        server()->setListenOnCustomPort(false);
        for (const char *key : {"CustomPort", "ConverterMaximalWidth", "ConverterMaximalHeight"})
            defaults().removeObjectForKey(QLatin1String(key));
        Window w = openWindow();
        auto *listen = w.find<QCheckBox>("listenOnCustomPortCheckBox");
        auto *port = w.find<QLineEdit>("customPortField");
        auto *portError = w.find<QLabel>("customPortError");
        QCOMPARE(port->text(), QStringLiteral("45631"));
        QVERIFY(!port->isEnabled());
        click(listen);
        QVERIFY(server()->listenOnCustomPort() && port->isEnabled());
        BridgeFixture::clearRecordedCalls();
        enterRefused(port, portError, QStringLiteral("80"), kPortMessage, "CustomPort");
        enterRefused(port, portError, QString(), kPortMessage, "CustomPort");
        QVERIFY(recordedCalls("setDefaultPort").isEmpty());
        enter(port, QStringLiteral("8080abc"));
        QCOMPARE(port->text(), QStringLiteral("8080"));
        QVERIFY(portError->text().isEmpty());
        QCOMPARE(defaults().objectForKey(QStringLiteral("CustomPort")).toInt(), 8080);
        QCOMPARE(recordedCalls("setDefaultPort"), QStringList({"setDefaultPort(8080)"}));
        server()->setCustomPort(5000); // changes made elsewhere reach the field
        QCOMPARE(port->text(), QStringLiteral("5000"));
        server()->setListenOnCustomPort(false);
        QVERIFY(!listen->isChecked() && !port->isEnabled());

        auto *width = w.find<QLineEdit>("maximalWidthField");
        auto *height = w.find<QLineEdit>("maximalHeightField");
        auto *heightError = w.find<QLabel>("maximalHeightError");
        QCOMPARE(width->text(), QStringLiteral("480"));
        QCOMPARE(height->text(), QStringLiteral("320"));
        for (const QString &refused : {QStringLiteral("299"), QStringLiteral("641"), QStringLiteral("wide")})
            enterRefused(width, w.find<QLabel>("maximalWidthError"), refused,
                         QStringLiteral("Value must be between 300 and 640"), "ConverterMaximalWidth");
        enter(width, QStringLiteral("640"));
        QCOMPARE(server()->maximalWidth(), 640);
        enterRefused(height, heightError, QStringLiteral("199"), QStringLiteral("Value must be between 200 and 480"),
                     "ConverterMaximalHeight");
        BridgeFixture::clearRecordedCalls();
        enter(height, QStringLiteral("200"));
        QVERIFY(heightError->text().isEmpty());
        QCOMPARE(BridgeFixture::recordedCalls(), QStringList({"setConverterMaxHeight(200)"}));

        // Shown refused text gives way to a value set elsewhere.
        enter(height, QStringLiteral("1000"));
        server()->setMaximalHeight(250);
        QCOMPARE(height->text(), QStringLiteral("250"));
        QVERIFY(heightError->text().isEmpty());
        QVERIFY(w.close());
    }

    void settingsBoundBothWays()
    {
        server()->setFontSize(100);
        server()->setRemoteSupportEnabled(false);
        for (int index = 1; index <= 4; ++index)
            server()->setPreferredLanguage(QStringLiteral("None"), index);
        Window w = openWindow();
        auto *size = w.find<QComboBox>("fontSizeComboBox");
        QStringList sizes;
        for (int i = 0; i < size->count(); ++i)
            sizes << size->itemText(i);
        QCOMPARE(sizes, QStringList({"90%", "100%", "110%", "120%", "130%", "140%", "150%"}));

        // The second entry of each list reaches the server, once and without echo.
        const struct {
            const char *box;
            std::function<QString()> value;
            const char *expected;
            QStringList calls;
        } lists[] = {
            {"codecComboBox", [] { return server()->codec(); }, "MPEG4", {}},
            {"fontSizeComboBox", [] { return QString::number(server()->fontSize()); }, "100", {"setFontSize(100)"}},
            {"preferredLanguage2ComboBox", [] { return server()->preferredLanguage2(); }, "English",
             {"setPreferredLanguages([English])"}},
            {"subtitleCharsetComboBox", [] { return server()->defaultEncoding().charset(); }, "ISO-8859-1",
             {"setDefaultCharset(ISO-8859-1)"}},
            {"fontFamilyComboBox", [] { return server()->fontFamilyName(); }, "Monospaced",
             {"setFontFamilyName(Monospaced)"}},
        };
        for (const auto &list : lists) {
            w.find<QComboBox>(list.box)->setCurrentIndex(0);
            BridgeFixture::clearRecordedCalls();
            QTest::keyClick(w.find<QComboBox>(list.box), Qt::Key_Down);
            QCOMPARE(list.value(), QLatin1String(list.expected));
            QCOMPARE(recordedCalls("set"), list.calls);
        }
        QCOMPARE(server()->preferredLanguage1(), QStringLiteral("None"));
        server()->setFontSize(130); // and back from the server
        QCOMPARE(size->currentText(), QStringLiteral("130%"));
        server()->setPreferredLanguage4(QStringLiteral("German"));
        QCOMPARE(w.find<QComboBox>("preferredLanguage4ComboBox")->currentText(), QStringLiteral("German"));

        auto *remote = w.find<QCheckBox>("remoteSupportCheckBox");
        auto *mapping = w.find<QCheckBox>("portMappingCheckBox");
        QVERIFY(!mapping->isEnabled());
        click(remote);
        QVERIFY(server()->remoteSupportEnabled());
        QVERIFY(mapping->isEnabled() && mapping->isChecked()); // on unless turned off
        click(mapping);
        QVERIFY(!server()->portMappingEnabled());
        server()->setRemoteSupportEnabled(false);
        QVERIFY(!remote->isChecked() && !mapping->isEnabled());

        auto *status = w.find<QLabel>("serverStatusLabel");
        server()->setRunning(false);
        QCOMPARE(status->text(), QStringLiteral("The server is stopped."));
        w.press("startStopServerButton");
        QVERIFY(server()->isRunning());
        QCOMPARE(status->text(), QStringLiteral("The server is running."));
        QCOMPARE(w.find<QPushButton>("startStopServerButton")->text(), QStringLiteral("Stop Server"));
        QTest::qWait(1100); // a poll pass sees it running (shorter runs go unreported)
        JNIServer::instance()->stop(); // stopped by itself: the poll tells the window
        QTRY_COMPARE_WITH_TIMEOUT(status->text(), QStringLiteral("The server is stopped."), 1500);
        QVERIFY(w.close());
    }

    void startOnLoginThroughTheWindow()
    {
        const QString folder = m_home.filePath(QStringLiteral("autostart"));
        StartAtLogin::setAutostartFolder(folder);
        StartAtLogin::setProgramPath(QStringLiteral("/opt/quillon/bin/quillon-server"));
        Window w = openWindow();
        auto *box = w.find<QCheckBox>("startOnLoginCheckBox");
        click(box); // no autostart folder: fails, writes nothing, reads unchecked
        QVERIFY(!box->isChecked() && !w.main->startOnLogin());
        QVERIFY(!QFileInfo::exists(folder));

        QVERIFY(QDir().mkpath(folder));
        click(box);
        QVERIFY(box->isChecked() && StartAtLogin::startOnLogin());
        click(box);
        QVERIFY(!box->isChecked() && !StartAtLogin::startOnLogin());
        QVERIFY(w.close());
        StartAtLogin::setAutostartFolder(QString());
        StartAtLogin::setProgramPath(QString());
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
