#include "MainForm.h"

#include "StatusGlyph.h"
#include "platform/WindowLayouts.h"
#include "ui_ChangePassword.h"
#include "ui_CloseWarning.h"
#include "ui_Main.h"

#include <QDialog>
#include <QLabel>
#include <QPixmap>

namespace {

void buildMain(QWidget *window)
{
    Ui::Main main;
    main.setupUi(window);
    window->setWindowIcon(QPixmap::fromImage(StatusGlyph::appIcon(64)));

    auto *closeSheet = new QDialog(window);
    Ui::CloseWarning closeWarning;
    closeWarning.setupUi(closeSheet);
    closeSheet->setWindowModality(Qt::WindowModal);
    closeWarning.closeWarningIcon->setPixmap(QPixmap::fromImage(StatusGlyph::appIcon(48)));

    auto *passwordSheet = new QDialog(window);
    Ui::ChangePassword changePassword;
    changePassword.setupUi(passwordSheet);
    passwordSheet->setWindowModality(Qt::WindowModal);
}

}

void registerMainForm()
{
    WindowLayouts::registerForm(QStringLiteral("Main"), buildMain);
}
