#include "preferences/MainWindowController.h"

#include "platform/WindowLayouts.h"
#include "platform/Defaults.h"
#include "platform/DelayedCall.h"
#include "platform/IntValue.h"
#include "platform/SystemLog.h"
#include "preferences/StartAtLogin.h"
#include "preferences/TabController.h"
#include "server/Server.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QEvent>
#include <QDialog>
#include <QKeySequence>
#include <QLabel>
#include <QLineEdit>
#include <QList>
#include <QShortcut>
#include <QTabWidget>
#include <QWidget>


namespace {

const QString kSkipCloseWarning = QStringLiteral("skipCloseWarning");
const QString kConversionTab = QStringLiteral("conversion");
const QString kLogsTab = QStringLiteral("logs");
const QString kPortMessage = QStringLiteral("Port must be an integer value in range from 1000 to 55000");
const int kLowestPort = 1024;
const int kHighestPort = 55000;

QList<MainWindowController::TabSetup> &tabSetups()
{
    static QList<MainWindowController::TabSetup> setups;
    return setups;
}


// A line edit's text as a proposal: never a null string, so that an empty
// field is judged as the empty text it shows rather than as "no value".
QVariant proposalOf(const QLineEdit *field)
{
    const QString text = field->text();
    return QVariant(text.isNull() ? QStringLiteral("") : text);
}

void setTextKeepingEdits(QLineEdit *field, const QString &text)
{
    if (field->text() != text)
        field->setText(text);
}

int indexOfData(const QComboBox *box, const QVariant &data)
{
    for (int i = 0; i < box->count(); ++i) {
        if (box->itemData(i) == data)
            return i;
    }
    return -1;
}

}

// ---- registration ----

void MainWindowController::registerLayout()
{
    WindowLayouts::registerController(QStringLiteral("Main"), [](QWidget *window) -> QObject * {
        auto *controller = new MainWindowController(window);
        for (const TabSetup &setup : std::as_const(tabSetups()))
            setup(controller, window);
        controller->awakeFromNib();
        return controller;
    });
}

void MainWindowController::addTabSetup(TabSetup setup)
{
    if (setup)
        tabSetups().append(std::move(setup));
}

void MainWindowController::clearTabSetups()
{
    tabSetups().clear();
}

// ---- creation ----

MainWindowController::MainWindowController(QWidget *window)
    : QObject(window)
    , m_window(window)
{
    m_tabView = child<QTabWidget>("tabView");
    m_closeSheet = child<QDialog>("closeSheet");
    m_changePasswordSheet = child<QDialog>("changePasswordSheet");

    // Quitting closes every window first; that close is not the user's and
    // gets no warning.
    if (QCoreApplication *app = QCoreApplication::instance())
        app->installEventFilter(this);

    // The keyboard's way to close a window, as elsewhere on the desktop.
    auto *closeShortcut = new QShortcut(QKeySequence::Close, window);
    connect(closeShortcut, &QShortcut::activated, window, &QWidget::close);

    bindSheets();
    bindServerTab();
    bindConverterTab();
    bindSubtitles();
}

MainWindowController::~MainWindowController()
{
    systemLog(QStringLiteral("MainWindowController Dealloc"));
}

template<class T>
T *MainWindowController::child(const char *name) const
{
    return m_window ? m_window->findChild<T *>(QLatin1String(name)) : nullptr;
}

void MainWindowController::awakeFromNib()
{
    if (m_awake)
        return;
    m_awake = true;
    if (!m_tabView)
        return;
    if (QWidget *page = m_tabView->currentWidget())
        setSelectedTabId(page->objectName());
    connect(m_tabView, &QTabWidget::currentChanged, this, [this] {
        if (QWidget *page = m_tabView->currentWidget())
            setSelectedTabId(page->objectName());
    });
}

Server *MainWindowController::server() const
{
    return Server::instance();
}

// ---- tabs ----

void MainWindowController::setSelectedTabId(const QString &tabId)
{
    if (tabId == m_selectedTabId)
        return;
    if (m_selectedTabId == kConversionTab && m_conversionController)
        m_conversionController->onHide();
    m_selectedTabId = tabId;
    if (tabId == kConversionTab) {
        if (m_conversionController)
            m_conversionController->onShow();
    } else if (tabId == kLogsTab) {
        if (m_logsController)
            m_logsController->onShow();
    }
    emit selectedTabIdChanged();

    // Keep the tab view on the same page when the id is set from outside.
    if (m_tabView) {
        QWidget *page = m_tabView->findChild<QWidget *>(tabId);
        if (page && m_tabView->indexOf(page) >= 0 && m_tabView->currentWidget() != page)
            m_tabView->setCurrentWidget(page);
    }
}

// ---- closing ----

bool MainWindowController::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Quit && watched == QCoreApplication::instance())
        m_applicationQuitting = true;
    return QObject::eventFilter(watched, event);
}

bool MainWindowController::windowShouldClose(QWidget *)
{
    if (m_applicationQuitting)
        return true;
    Defaults &defaults = Defaults::standard();
    if (defaults.contains(kSkipCloseWarning) && defaults.boolForKey(kSkipCloseWarning))
        return true;
    if (!m_closeSheet)
        return true;
    if (!m_closeSheet->isVisible())
        m_closeSheet->open();
    return false;
}

void MainWindowController::closeSheetClose()
{
    if (m_closeSheet)
        m_closeSheet->done(QDialog::Accepted);
}

void MainWindowController::didEndSheet(int)
{
    QDialog *sheet = m_closeSheet;
    if (!sheet)
        return;
    sheet->hide();
    if (auto *skip = sheet->findChild<QCheckBox *>(QStringLiteral("skipCloseWarningCheckBox"))) {
        if (skip->isChecked())
            Defaults::standard().setBool(true, kSkipCloseWarning);
    }
    // Only the field: the sheet belongs to the window. The warning is now
    // spent for this opening, so the second close goes through.
    m_closeSheet = nullptr;
    if (m_window)
        m_window->close();
}

void MainWindowController::windowWillClose(QWidget *)
{
    DelayedCall::cancelAll(this);
    if (m_conversionController)
        m_conversionController->windowWillClose();
}

// ---- password sheet ----

void MainWindowController::bindSheets()
{
    if (m_closeSheet) {
        connect(m_closeSheet, &QDialog::finished, this, &MainWindowController::didEndSheet);
        if (auto *button = m_closeSheet->findChild<QAbstractButton *>(QStringLiteral("closeSheetButton")))
            connect(button, &QAbstractButton::clicked, this, &MainWindowController::closeSheetClose);
    }
    if (QDialog *sheet = m_changePasswordSheet) {
        if (auto *field = sheet->findChild<QLineEdit *>(QStringLiteral("changePasswordField"))) {
            connect(field, &QLineEdit::textEdited, this, [this](const QString &text) {
                setChangePasswordString(text.isNull() ? QStringLiteral("") : text);
            });
            connect(this, &MainWindowController::changePasswordStringChanged, field, [this, field] {
                setTextKeepingEdits(field, m_changePasswordString);
            });
        }
        if (auto *button = sheet->findChild<QAbstractButton *>(QStringLiteral("changePasswordConfirmButton")))
            connect(button, &QAbstractButton::clicked, this, &MainWindowController::changePasswordConfirm);
        if (auto *button = sheet->findChild<QAbstractButton *>(QStringLiteral("changePasswordCancelButton")))
            connect(button, &QAbstractButton::clicked, this, &MainWindowController::changePasswordCancel);
    }
}

void MainWindowController::changePassword()
{
    QDialog *sheet = m_changePasswordSheet;
    if (!sheet)
        return;
    if (auto *field = sheet->findChild<QLineEdit *>(QStringLiteral("changePasswordField"))) {
        setTextKeepingEdits(field, m_changePasswordString);
        field->selectAll();
        field->setFocus();
    }
    sheet->open();
}

void MainWindowController::changePasswordConfirm()
{
    if (m_changePasswordSheet) {
        m_changePasswordSheet->hide();
        m_changePasswordSheet->done(QDialog::Accepted);
    }
    if (Server *facade = server())
        facade->setPassword(m_changePasswordString);
}

void MainWindowController::changePasswordCancel()
{
    if (m_changePasswordSheet) {
        m_changePasswordSheet->hide();
        m_changePasswordSheet->done(QDialog::Rejected);
    }
}

void MainWindowController::setChangePasswordString(const QString &text)
{
    if (text == m_changePasswordString && text.isNull() == m_changePasswordString.isNull())
        return;
    m_changePasswordString = text;
    emit changePasswordStringChanged();
}

// ---- port ----

int MainWindowController::intValue(const QVariant &value)
{
    return ::intValue(value);
}

bool MainWindowController::validateCustomPort(const QVariant &proposed, ValidationError *error)
{
    const int port = intValue(proposed);
    if (port >= kLowestPort && port <= kHighestPort)
        return true;
    if (error) {
        error->domain = QStringLiteral("");
        error->code = 0;
        error->description = kPortMessage;
    }
    return false;
}

int MainWindowController::customPort() const
{
    Server *facade = server();
    return facade ? facade->customPort() : Server::kStandardPort;
}

void MainWindowController::setCustomPort(int port)
{
    if (Server *facade = server())
        facade->setCustomPort(port);
}

void MainWindowController::commitCustomPort()
{
    auto *field = child<QLineEdit>("customPortField");
    auto *error = child<QLabel>("customPortError");
    if (!field)
        return;
    const QVariant proposed = proposalOf(field);
    ValidationError refusal;
    if (!validateCustomPort(proposed, &refusal)) {
        if (error)
            error->setText(refusal.description);
        return; // the stored port stays as it was
    }
    if (error)
        error->clear();
    setCustomPort(intValue(proposed));
}

void MainWindowController::updateCustomPortField()
{
    auto *field = child<QLineEdit>("customPortField");
    if (field)
        setTextKeepingEdits(field, QString::number(customPort()));
    if (auto *error = child<QLabel>("customPortError"))
        error->clear();
}

// ---- start at login ----

bool MainWindowController::startOnLogin() const
{
    return StartAtLogin::startOnLogin();
}

void MainWindowController::setStartOnLogin(bool start)
{
    // A refused change (no autostart folder) is not reported; the switch
    // simply reads the list again.
    StartAtLogin::setStartOnLogin(start);
    emit startOnLoginChanged();
}

void MainWindowController::updateStartOnLogin()
{
    if (auto *box = child<QCheckBox>("startOnLoginCheckBox"))
        box->setChecked(startOnLogin());
}

// ---- server tab ----

void MainWindowController::bindServerTab()
{
    Server *facade = server();

    if (auto *button = child<QAbstractButton>("startStopServerButton")) {
        connect(button, &QAbstractButton::clicked, this, [this] {
            if (Server *s = server())
                s->setRunning(!s->isRunning());
        });
    }

    if (auto *box = child<QCheckBox>("listenOnCustomPortCheckBox")) {
        connect(box, &QCheckBox::clicked, this, [this](bool checked) {
            if (Server *s = server())
                s->setListenOnCustomPort(checked);
        });
    }
    if (auto *field = child<QLineEdit>("customPortField"))
        connect(field, &QLineEdit::editingFinished, this, &MainWindowController::commitCustomPort);

    if (auto *box = child<QCheckBox>("requiresPasswordCheckBox")) {
        connect(box, &QCheckBox::clicked, this, [this](bool checked) {
            if (Server *s = server())
                s->setRequiresPassword(checked);
        });
    }
    if (auto *button = child<QAbstractButton>("changePasswordButton"))
        connect(button, &QAbstractButton::clicked, this, &MainWindowController::changePassword);

    if (auto *box = child<QCheckBox>("remoteSupportCheckBox")) {
        connect(box, &QCheckBox::clicked, this, [this](bool checked) {
            if (Server *s = server())
                s->setRemoteSupportEnabled(checked);
        });
    }
    if (auto *box = child<QCheckBox>("portMappingCheckBox")) {
        connect(box, &QCheckBox::clicked, this, [this](bool checked) {
            if (Server *s = server())
                s->setPortMappingEnabled(checked);
        });
    }

    if (auto *box = child<QCheckBox>("startOnLoginCheckBox")) {
        connect(box, &QCheckBox::clicked, this, &MainWindowController::setStartOnLogin);
        connect(this, &MainWindowController::startOnLoginChanged, this, &MainWindowController::updateStartOnLogin);
    }

    if (facade) {
        connect(facade, &Server::runningChanged, this, &MainWindowController::updateRunningState);
        connect(facade, &Server::listenOnCustomPortChanged, this, [this] {
            if (auto *box = child<QCheckBox>("listenOnCustomPortCheckBox"))
                box->setChecked(server()->listenOnCustomPort());
            if (auto *field = child<QLineEdit>("customPortField"))
                field->setEnabled(server()->listenOnCustomPort());
            updateWebPlayerAddress();
        });
        connect(facade, &Server::customPortChanged, this, [this] {
            updateCustomPortField();
            updateWebPlayerAddress();
            emit customPortChanged();
        });
        connect(facade, &Server::requiresPasswordChanged, this, &MainWindowController::updatePasswordFields);
        connect(facade, &Server::passwordPlaceholderChanged, this, &MainWindowController::updatePasswordFields);
        connect(facade, &Server::remoteSupportEnabledChanged, this, &MainWindowController::updateRemoteFields);
        connect(facade, &Server::portMappingEnabledChanged, this, &MainWindowController::updateRemoteFields);
    }

    updateRunningState();
    if (facade) {
        if (auto *box = child<QCheckBox>("listenOnCustomPortCheckBox"))
            box->setChecked(facade->listenOnCustomPort());
        if (auto *field = child<QLineEdit>("customPortField"))
            field->setEnabled(facade->listenOnCustomPort());
    }
    updateCustomPortField();
    updatePasswordFields();
    updateRemoteFields();
    updateStartOnLogin();
}

void MainWindowController::updateRunningState()
{
    Server *facade = server();
    const bool running = facade && facade->isRunning();
    if (auto *label = child<QLabel>("serverStatusLabel"))
        label->setText(running ? tr("The server is running.") : tr("The server is stopped."));
    if (auto *button = child<QAbstractButton>("startStopServerButton")) {
        button->setText(running ? tr("Stop Server") : tr("Start Server"));
        button->setEnabled(facade != nullptr);
    }
    m_serverRunning = running;
    updateWebPlayerAddress();
}

void MainWindowController::updateWebPlayerAddress()
{
    auto *label = child<QLabel>("webPlayerAddressLabel");
    Server *facade = server();
    if (!label || !facade)
        return;
    const QString url = facade->webPlayerUrl().toString().toHtmlEscaped();
    const QString link = QStringLiteral("<a href=\"%1\">%1</a>").arg(url);
    // The state the running poll last told, rather than one more question to Java.
    const bool running = m_serverRunning;
    label->setText(running ? tr("Other devices in your home can watch at %1").arg(link)
                           : tr("Once the server runs, other devices in your home can watch at %1").arg(link));
    // Nothing answers at the address while the server is stopped.
    label->setEnabled(running);
}

void MainWindowController::updatePasswordFields()
{
    Server *facade = server();
    if (!facade)
        return;
    if (auto *box = child<QCheckBox>("requiresPasswordCheckBox"))
        box->setChecked(facade->requiresPassword());
    if (auto *field = child<QLineEdit>("passwordPlaceholderField"))
        field->setText(facade->passwordPlaceholder());
}

void MainWindowController::updateRemoteFields()
{
    Server *facade = server();
    if (!facade)
        return;
    const bool remote = facade->remoteSupportEnabled();
    if (auto *box = child<QCheckBox>("remoteSupportCheckBox"))
        box->setChecked(remote);
    if (auto *box = child<QCheckBox>("portMappingCheckBox")) {
        box->setChecked(facade->portMappingEnabled());
        // Mapping a port only matters for access from the internet.
        box->setEnabled(remote);
    }
}

// ---- converter tab ----

void MainWindowController::bindConverterTab()
{
    Server *facade = server();
    auto *widthField = child<QLineEdit>("maximalWidthField");
    auto *heightField = child<QLineEdit>("maximalHeightField");
    if (widthField)
        connect(widthField, &QLineEdit::editingFinished, this, [this] { commitSize(true); });
    if (heightField)
        connect(heightField, &QLineEdit::editingFinished, this, [this] { commitSize(false); });
    if (auto *label = child<QLabel>("maximalWidthRange"); label && facade)
        label->setText(tr("pixels (%1 to %2)").arg(facade->maximalWidthMin()).arg(facade->maximalWidthMax()));
    if (auto *label = child<QLabel>("maximalHeightRange"); label && facade)
        label->setText(tr("pixels (%1 to %2)").arg(facade->maximalHeightMin()).arg(facade->maximalHeightMax()));

    if (auto *box = child<QComboBox>("codecComboBox")) {
        connect(box, &QComboBox::activated, this, [this, box](int index) {
            if (Server *s = server(); s && index >= 0)
                s->setCodec(box->itemText(index));
        });
    }

    if (!facade)
        return;
    connect(facade, &Server::maximalWidthChanged, this, [this] {
        updateSizeField(child<QLineEdit>("maximalWidthField"), child<QLabel>("maximalWidthError"),
                        server()->maximalWidth());
    });
    connect(facade, &Server::maximalHeightChanged, this, [this] {
        updateSizeField(child<QLineEdit>("maximalHeightField"), child<QLabel>("maximalHeightError"),
                        server()->maximalHeight());
    });
    connect(facade, &Server::codecChanged, this, &MainWindowController::updateCodec);
    updateSizeField(widthField, child<QLabel>("maximalWidthError"), facade->maximalWidth());
    updateSizeField(heightField, child<QLabel>("maximalHeightError"), facade->maximalHeight());
    updateCodec();
}

void MainWindowController::updateSizeField(QLineEdit *field, QLabel *error, int value)
{
    if (field)
        setTextKeepingEdits(field, QString::number(value));
    if (error)
        error->clear();
}

void MainWindowController::commitSize(bool width)
{
    Server *facade = server();
    auto *field = child<QLineEdit>(width ? "maximalWidthField" : "maximalHeightField");
    auto *error = child<QLabel>(width ? "maximalWidthError" : "maximalHeightError");
    if (!facade || !field)
        return;
    const QVariant proposed = proposalOf(field);
    ValidationError refusal;
    const bool valid = width ? facade->validateMaximalWidth(proposed, &refusal)
                             : facade->validateMaximalHeight(proposed, &refusal);
    if (!valid) {
        if (error)
            error->setText(refusal.description);
        return; // the setters take any value, so nothing refused may reach them
    }
    if (error)
        error->clear();
    if (width)
        facade->setMaximalWidth(intValue(proposed));
    else
        facade->setMaximalHeight(intValue(proposed));
}

void MainWindowController::updateCodec()
{
    auto *box = child<QComboBox>("codecComboBox");
    Server *facade = server();
    if (!box || !facade)
        return;
    const QStringList codecs = facade->codecValues();
    const QString codec = facade->codec();
    QStringList items = codecs;
    if (!items.contains(codec))
        items.append(codec); // a value stored by hand is shown as it is
    QStringList current;
    for (int i = 0; i < box->count(); ++i)
        current << box->itemText(i);
    if (current != items) {
        box->clear();
        box->addItems(items);
    }
    box->setCurrentIndex(int(items.indexOf(codec)));
}

// ---- subtitles ----

void MainWindowController::bindSubtitles()
{
    Server *facade = server();
    if (!facade)
        return;

    if (auto *box = child<QComboBox>("subtitleCharsetComboBox")) {
        connect(box, &QComboBox::activated, this, [this, box](int index) {
            if (Server *s = server(); s && index >= 0)
                s->setDefaultEncoding(Encoding(box->itemText(index), box->itemData(index).toString()));
        });
        connect(facade, &Server::defaultEncodingChanged, this, &MainWindowController::updateCharsets);
    }
    if (auto *box = child<QComboBox>("fontFamilyComboBox")) {
        connect(box, &QComboBox::activated, this, [this, box](int index) {
            if (Server *s = server(); s && index >= 0)
                s->setFontFamilyName(box->itemText(index));
        });
        connect(facade, &Server::fontFamilyNameChanged, this, &MainWindowController::updateFontFamilies);
    }
    if (auto *box = child<QComboBox>("fontSizeComboBox")) {
        connect(box, &QComboBox::activated, this, [this, box](int index) {
            if (Server *s = server(); s && index >= 0)
                s->setFontSize(box->itemData(index).toInt());
        });
        connect(facade, &Server::fontSizeChanged, this, &MainWindowController::updateFontSizes);
    }

    // The server's languages are asked once per window; every slot offers
    // the same list.
    const QStringList languages = facade->availableLanguages();
    for (int index = 1; index <= 4; ++index) {
        auto *box = child<QComboBox>(QStringLiteral("preferredLanguage%1ComboBox").arg(index).toLatin1().constData());
        if (!box)
            continue;
        box->addItems(languages);
        connect(box, &QComboBox::activated, this, [this, box, index](int item) {
            if (Server *s = server(); s && item >= 0)
                s->setPreferredLanguage(box->itemText(item), index);
        });
    }
    connect(facade, &Server::preferredLanguage1Changed, this, [this] { updateLanguage(1); });
    connect(facade, &Server::preferredLanguage2Changed, this, [this] { updateLanguage(2); });
    connect(facade, &Server::preferredLanguage3Changed, this, [this] { updateLanguage(3); });
    connect(facade, &Server::preferredLanguage4Changed, this, [this] { updateLanguage(4); });

    if (auto *box = child<QCheckBox>("disableEmbeddedSubtitlesCheckBox")) {
        connect(box, &QCheckBox::clicked, this, [this](bool checked) {
            if (Server *s = server())
                s->setDisableEmbeddedSubtitlesIfNoLanguageMatches(checked);
        });
        connect(facade, &Server::disableEmbeddedSubtitlesIfNoLanguageMatchesChanged, box, [this, box] {
            box->setChecked(server()->disableEmbeddedSubtitlesIfNoLanguageMatches());
        });
        box->setChecked(facade->disableEmbeddedSubtitlesIfNoLanguageMatches());
    }

    updateCharsets();
    updateFontFamilies();
    updateFontSizes();
    for (int index = 1; index <= 4; ++index)
        updateLanguage(index);
}

void MainWindowController::updateCharsets()
{
    auto *box = child<QComboBox>("subtitleCharsetComboBox");
    Server *facade = server();
    if (!box || !facade)
        return;
    const Encoding current = facade->defaultEncoding();
    if (box->count() == 0) {
        const QList<Encoding> encodings = facade->availableEncodings();
        for (const Encoding &encoding : encodings)
            box->addItem(encoding.description(), encoding.charset());
    }
    int index = indexOfData(box, current.charset());
    if (index < 0 && !current.charset().isEmpty()) {
        box->addItem(current.description(), current.charset());
        index = box->count() - 1;
    }
    box->setCurrentIndex(index);
}

void MainWindowController::updateFontFamilies()
{
    auto *box = child<QComboBox>("fontFamilyComboBox");
    Server *facade = server();
    if (!box || !facade)
        return;
    if (box->count() == 0)
        box->addItems(facade->availableFontFamilyNames());
    const QString family = facade->fontFamilyName();
    int index = box->findText(family, Qt::MatchExactly | Qt::MatchCaseSensitive);
    if (index < 0 && !family.isEmpty()) {
        box->addItem(family);
        index = box->count() - 1;
    }
    box->setCurrentIndex(index);
}

void MainWindowController::updateFontSizes()
{
    auto *box = child<QComboBox>("fontSizeComboBox");
    Server *facade = server();
    if (!box || !facade)
        return;
    if (box->count() == 0) {
        const QList<int> sizes = facade->availableFontSizes();
        for (int size : sizes)
            box->addItem(withPercent(size), size);
    }
    const int size = facade->fontSize();
    int index = indexOfData(box, size);
    if (index < 0) {
        box->addItem(withPercent(size), size);
        index = box->count() - 1;
    }
    box->setCurrentIndex(index);
}

void MainWindowController::updateLanguage(int index)
{
    auto *box = child<QComboBox>(QStringLiteral("preferredLanguage%1ComboBox").arg(index).toLatin1().constData());
    Server *facade = server();
    if (!box || !facade)
        return;
    const QString language = facade->preferredLanguageForIndex(index);
    int item = box->findText(language, Qt::MatchExactly | Qt::MatchCaseSensitive);
    if (item < 0) {
        box->addItem(language);
        item = box->count() - 1;
    }
    box->setCurrentIndex(item);
}
