#pragma once

#include "platform/ValidationError.h"
#include "server/Server.h"

#include <QDialog>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariant>

#include <functional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QTabWidget;
class QWidget;
class TabController;

// The controller of the preferences window (layout "Main"), created with the
// window and living as its child. It tells the conversion and logs tabs when
// they are shown or hidden, warns once before the window closes, runs the
// change-password sheet and binds the window's settings to the Server facade
// in both directions: a widget's change goes through validation to the
// facade's setter, and the facade's change notices update the widgets.
class MainWindowController : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString selectedTabId READ selectedTabId WRITE setSelectedTabId NOTIFY selectedTabIdChanged)
    Q_PROPERTY(QString changePasswordString READ changePasswordString WRITE setChangePasswordString NOTIFY changePasswordStringChanged)
    Q_PROPERTY(int customPort READ customPort WRITE setCustomPort NOTIFY customPortChanged)
    Q_PROPERTY(bool startOnLogin READ startOnLogin WRITE setStartOnLogin NOTIFY startOnLoginChanged)
    Q_PROPERTY(Server *server READ server CONSTANT)

public:
    // Binds this controller to the layout "Main", so that every preferences
    // window gets one.
    static void registerLayout();

    // Creates the controllers of the tabs that have one, between the
    // controller's creation and the first announcement of the selected tab.
    // Each tab's own code adds its setup; tests add fakes.
    using TabSetup = std::function<void(MainWindowController *controller, QWidget *window)>;
    static void addTabSetup(TabSetup setup);
    static void clearTabSetups();

    // Finds the layout's widgets in `window` and binds them. Call
    // awakeFromNib() once the tab controllers are in place.
    explicit MainWindowController(QWidget *window);
    ~MainWindowController() override;

    // Announces the tab the layout selected and follows the tab view.
    void awakeFromNib();

    QWidget *window() const { return m_window; }
    QTabWidget *tabView() const { return m_tabView; }
    QDialog *closeSheet() const { return m_closeSheet; }
    QDialog *changePasswordSheet() const { return m_changePasswordSheet; }

    // The tab controllers; not owned (they live with the window). Either may
    // be missing.
    TabController *conversionController() const { return m_conversionController; }
    void setConversionController(TabController *controller) { m_conversionController = controller; }
    TabController *logsController() const { return m_logsController; }
    void setLogsController(TabController *controller) { m_logsController = controller; }

    QString selectedTabId() const { return m_selectedTabId; }
    void setSelectedTabId(const QString &tabId);

    // Window closing, asked and told by the WindowController.
    Q_INVOKABLE bool windowShouldClose(QWidget *window);
    Q_INVOKABLE void windowWillClose(QWidget *window);

    // The close warning's button, and the end of that sheet.
    void closeSheetClose();
    void didEndSheet(int returnCode);

    // The change-password sheet.
    void changePassword();
    void changePasswordConfirm();
    void changePasswordCancel();
    QString changePasswordString() const { return m_changePasswordString; }
    void setChangePasswordString(const QString &text);

    // The facade's custom port.
    int customPort() const;
    void setCustomPort(int port);

    // Accepts 1024..55000, the proposal read like a number field's text (a
    // leading integer, else 0). `error` may be null.
    static bool validateCustomPort(const QVariant &proposed, ValidationError *error);
    // The integer at the start of a text or number, 0 when there is none.
    static int intValue(const QVariant &value);

    // Start at login, read from and written to the autostart list.
    bool startOnLogin() const;
    void setStartOnLogin(bool start);

    // The settings facade (nullptr once the application has ended).
    Server *server() const;

signals:
    void selectedTabIdChanged();
    void changePasswordStringChanged();
    void customPortChanged();
    void startOnLoginChanged();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    template<class T>
    T *child(const char *name) const;
    void bindServerTab();
    void bindConverterTab();
    void bindSubtitles();
    void bindSheets();
    void updateRunningState();
    void updateWebPlayerAddress();
    void updateCustomPortField();
    void updatePasswordFields();
    void updateRemoteFields();
    void updateSizeField(QLineEdit *field, QLabel *error, int value);
    void updateCodec();
    void updateCharsets();
    void updateFontFamilies();
    void updateFontSizes();
    void updateLanguage(int index);
    void updateStartOnLogin();
    void commitCustomPort();
    void commitSize(bool width);

    QWidget *m_window = nullptr;
    QTabWidget *m_tabView = nullptr;
    QPointer<QDialog> m_closeSheet;
    QDialog *m_changePasswordSheet = nullptr;
    TabController *m_conversionController = nullptr;
    TabController *m_logsController = nullptr;
    QString m_selectedTabId;
    QString m_changePasswordString;
    bool m_awake = false;
    bool m_serverRunning = false;
    bool m_applicationQuitting = false;
};
