#pragma once

#include <QObject>
#include <QUrl>
#include <functional>

class QWidget;

// The About window: the version and two buttons that open the product's home
// page and its licences page in the browser. At most one exists at a time;
// closing the window deletes the controller, and the next request builds a
// new one from the layout.
class AboutController : public QObject
{
    Q_OBJECT
public:
    // The current controller, or a new one with its window built but hidden.
    static AboutController *instance();
    // The current controller without creating one.
    static AboutController *currentInstance();

    // Brings the window to the front with the focus.
    void show();

    QWidget *window() const { return m_window; }

    // "CFBundleVersion" of the Info values, unformatted; empty when absent.
    static QString versionNumber();

    static QUrl homePageUrl();
    static QUrl licensesUrl();

    // Opens URLs in the user's browser; tests put their own opener here. An
    // empty function restores QDesktopServices::openUrl.
    using UrlOpener = std::function<bool(const QUrl &)>;
    static void setUrlOpener(UrlOpener opener);

public slots:
    void showLicenses();
    void showHomePage();
    void windowWillClose();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    AboutController();
    ~AboutController() override;
    void openUrl(const QUrl &url);

    QWidget *m_window = nullptr;
    bool m_closing = false;
};
