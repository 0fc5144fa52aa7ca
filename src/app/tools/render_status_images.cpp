// Writes the four tray images (22 px and @2x) into a folder, and optionally a
// preview sheet of them on light, dark and highlight panel colours.
//
//   quillon-status-images <folder> [--preview <sheet.png>]

#include "../StatusGlyph.h"

#include <QDir>
#include <QCoreApplication>
#include <QPainter>
#include <QTextStream>

namespace {

struct Variant {
    const char *name;
    bool running;
    bool selected;
};

const Variant kVariants[] = {
    {"mac-menu-on", true, false},
    {"mac-menu-on-selected", true, true},
    {"mac-menu-off", false, false},
    {"mac-menu-off-selected", false, true},
};

bool writePreview(const QString &file)
{
    const QColor panels[] = {QColor(0xf0, 0xf0, 0xf0), QColor(0x2b, 0x2b, 0x2b), QColor(0x3d, 0x6e, 0xb4)};
    const int zoom = 4;
    const int cell = 22 * zoom + 12;
    QImage sheet(cell * 4 + 12 + 4 * 30, int(std::size(panels)) * (cell + 30), QImage::Format_ARGB32);
    sheet.fill(Qt::white);
    QPainter p(&sheet);
    int y = 0;
    for (const QColor &panel : panels) {
        p.fillRect(0, y, sheet.width(), cell + 30, panel);
        int x = 6;
        for (const Variant &v : kVariants) {
            // Magnified 22 px pixels, then the real sizes beside them.
            const QImage small = StatusGlyph::render(22, v.running, v.selected);
            p.drawImage(QRect(x, y + 6, 22 * zoom, 22 * zoom), small);
            p.drawImage(QPoint(x, y + cell), small);
            p.drawImage(QPoint(x + 26, y + cell - 22), StatusGlyph::render(44, v.running, v.selected));
            x += cell + 30;
        }
        y += cell + 30;
    }
    return sheet.save(file);
}

}

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream err(stderr);
    const QStringList args = app.arguments().mid(1);
    if (args.isEmpty() || args.first().startsWith(QLatin1Char('-'))) {
        err << "usage: quillon-status-images <folder> [--preview <sheet.png>]\n";
        return 2;
    }
    const QDir folder(args.first());
    if (!folder.exists() && !QDir().mkpath(folder.path())) {
        err << "cannot create " << folder.path() << '\n';
        return 1;
    }
    for (const Variant &v : kVariants) {
        const QString base = folder.filePath(QString::fromLatin1(v.name));
        if (!StatusGlyph::render(22, v.running, v.selected).save(base + QStringLiteral(".png"))
            || !StatusGlyph::render(44, v.running, v.selected).save(base + QStringLiteral("@2x.png"))) {
            err << "cannot write " << base << ".png\n";
            return 1;
        }
    }
    const qsizetype preview = args.indexOf(QStringLiteral("--preview"));
    if (preview > 0) {
        if (preview + 1 >= args.size() || !writePreview(args.at(preview + 1))) {
            err << "cannot write the preview\n";
            return 1;
        }
    }
    return 0;
}
