// Renders the window layouts to PNG files: every tab of the preferences
// window, its two sheets and the About window. The combo boxes are filled
// with sample entries, as the controllers would fill them.
//
//   QT_QPA_PLATFORM=offscreen quillon-layout-shots <folder>

#include "AboutController.h"
#include "MainForm.h"
#include "platform/WindowLayouts.h"

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QTabWidget>
#include <QTextStream>

namespace {

void fillSamples(QWidget *window)
{
    auto fill = [window](const char *name, const QStringList &items, int current = 0) {
        if (auto *box = window->findChild<QComboBox *>(QLatin1String(name))) {
            box->addItems(items);
            box->setCurrentIndex(current);
        }
    };
    fill("codecComboBox", {QStringLiteral("X264"), QStringLiteral("MPEG4")});
    fill("subtitleCharsetComboBox", {QStringLiteral("Western (Windows-1252)"), QStringLiteral("Unicode (UTF-8)")});
    fill("fontFamilyComboBox", {QStringLiteral("DejaVu Sans"), QStringLiteral("Lucida Sans")});
    fill("fontSizeComboBox", {QStringLiteral("90%"), QStringLiteral("100%"), QStringLiteral("110%")}, 1);
    const QStringList languages{QStringLiteral("None"), QStringLiteral("English"), QStringLiteral("French")};
    fill("preferredLanguage1ComboBox", languages, 1);
    fill("preferredLanguage2ComboBox", languages, 2);
    fill("preferredLanguage3ComboBox", languages);
    fill("preferredLanguage4ComboBox", languages);
    auto text = [window](const char *name, const QString &value) {
        if (auto *edit = window->findChild<QLineEdit *>(QLatin1String(name)))
            edit->setText(value);
    };
    text("customPortField", QStringLiteral("80"));
    text("passwordPlaceholderField", QStringLiteral("******"));
    text("maximalWidthField", QStringLiteral("480"));
    text("maximalHeightField", QStringLiteral("180"));
    if (auto *error = window->findChild<QLabel *>(QStringLiteral("customPortError")))
        error->setText(QStringLiteral("Port must be an integer value in range from 1000 to 55000"));
    if (auto *error = window->findChild<QLabel *>(QStringLiteral("maximalHeightError")))
        error->setText(QStringLiteral("Value must be between 200 and 480"));
}

bool save(QWidget *widget, const QDir &folder, const QString &name)
{
    widget->show();
    QApplication::processEvents();
    return widget->grab().save(folder.filePath(name + QStringLiteral(".png")));
}

}

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QTextStream err(stderr);
    if (app.arguments().size() != 2) {
        err << "usage: quillon-layout-shots <folder>\n";
        return 2;
    }
    const QDir folder(app.arguments().at(1));
    QDir().mkpath(folder.path());
    bool ok = true;

    registerMainForm();
    QWidget window(nullptr, Qt::Window);
    if (!WindowLayouts::buildForm(QStringLiteral("Main"), &window)) {
        err << "no layout \"Main\"\n";
        return 1;
    }
    fillSamples(&window);
    window.resize(window.size());
    auto *tabs = window.findChild<QTabWidget *>(QStringLiteral("tabView"));
    for (int i = 0; tabs && i < tabs->count(); ++i) {
        tabs->setCurrentIndex(i);
        ok = save(&window, folder, QStringLiteral("main-") + tabs->widget(i)->objectName()) && ok;
    }
    window.resize(window.minimumSize());
    tabs->setCurrentIndex(0);
    ok = save(&window, folder, QStringLiteral("main-minimum-size")) && ok;
    window.resize(window.minimumSize());
    tabs->setCurrentIndex(3);
    ok = save(&window, folder, QStringLiteral("main-minimum-size-converter")) && ok;

    for (const char *sheet : {"closeSheet", "changePasswordSheet"}) {
        auto *dialog = window.findChild<QDialog *>(QLatin1String(sheet));
        if (!dialog) {
            err << "no sheet " << sheet << '\n';
            ok = false;
            continue;
        }
        dialog->adjustSize();
        ok = save(dialog, folder, QLatin1String(sheet)) && ok;
    }

    AboutController *about = AboutController::instance();
    ok = save(about->window(), folder, QStringLiteral("about")) && ok;
    if (!ok)
        err << "some images could not be written\n";
    return ok ? 0 : 1;
}
