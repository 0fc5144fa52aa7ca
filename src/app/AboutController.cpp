#include "AboutController.h"

#include "StatusGlyph.h"
#include "platform/ProductWebsite.h"
#include "platform/Resources.h"
#include "platform/SystemLog.h"
#include "ui_About.h"

#include <QApplication>
#include <QDesktopServices>
#include <QEvent>
#include <QPixmap>
#include <QWidget>

namespace {

AboutController *s_current = nullptr;

AboutController::UrlOpener &urlOpener()
{
    static AboutController::UrlOpener opener;
    return opener;
}

QUrl productPage(const char *path)
{
    return QUrl(QString::fromLatin1(kProductWebHost) + QLatin1String(path));
}

}

AboutController *AboutController::instance()
{
    if (!s_current)
        s_current = new AboutController;
    return s_current;
}

AboutController *AboutController::currentInstance()
{
    return s_current;
}

AboutController::AboutController()
{
    m_window = new QWidget(nullptr, Qt::Window);
    Ui::About ui;
    ui.setupUi(m_window);

    const qreal ratio = qApp ? qApp->devicePixelRatio() : 1.0;
    QPixmap icon = QPixmap::fromImage(StatusGlyph::appIcon(qRound(64 * ratio)));
    icon.setDevicePixelRatio(ratio);
    ui.iconLabel->setPixmap(icon);
    const QString version = versionNumber();
    ui.versionLabel->setText(version.isEmpty() ? QString() : tr("Version %1").arg(version));

    connect(ui.homePageButton, &QAbstractButton::clicked, this, &AboutController::showHomePage);
    connect(ui.licensesButton, &QAbstractButton::clicked, this, &AboutController::showLicenses);
    m_window->installEventFilter(this);
    m_window->setWindowIcon(QIcon(QPixmap::fromImage(StatusGlyph::appIcon(64))));
    m_window->adjustSize();
    m_window->setFixedSize(m_window->size());
}

AboutController::~AboutController()
{
    systemLog(QStringLiteral("AboutController Dealloc"));
    if (s_current == this)
        s_current = nullptr;
    if (m_window) {
        m_window->removeEventFilter(this);
        delete m_window;
    }
}

void AboutController::show()
{
    if (!m_window)
        return;
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

QString AboutController::versionNumber()
{
    return Info::value(QStringLiteral("CFBundleVersion"));
}

QUrl AboutController::homePageUrl()
{
    return productPage("/quillon");
}

QUrl AboutController::licensesUrl()
{
    return productPage("/quillon/licenses.html");
}

void AboutController::setUrlOpener(UrlOpener opener)
{
    urlOpener() = std::move(opener);
}

void AboutController::openUrl(const QUrl &url)
{
    // A browser that cannot be started is not reported.
    if (urlOpener())
        urlOpener()(url);
    else
        QDesktopServices::openUrl(url);
}

void AboutController::showLicenses()
{
    openUrl(licensesUrl());
}

void AboutController::showHomePage()
{
    openUrl(homePageUrl());
}

void AboutController::windowWillClose()
{
    if (m_closing)
        return;
    m_closing = true;
    // A new request from now on builds a new window, even before this one is
    // gone.
    if (s_current == this)
        s_current = nullptr;
    deleteLater();
}

bool AboutController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_window && event->type() == QEvent::Close)
        windowWillClose();
    return QObject::eventFilter(watched, event);
}
