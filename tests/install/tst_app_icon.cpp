// The installed icons are rendered from an SVG; the windows draw the same
// icon with QPainter. Both must stay the same picture at every size.
#include "StatusGlyph.h"

#include <QImage>
#include <QtTest>

class TestAppIcon : public QObject
{
    Q_OBJECT

private slots:
    void svgMatchesTheDrawnIcon_data()
    {
        QTest::addColumn<int>("size");
        for (int size : {16, 22, 24, 32, 48, 64, 128, 256})
            QTest::addRow("%d px", size) << size;
    }

    void svgMatchesTheDrawnIcon()
    {
        QFETCH(int, size);
        const QString file = QStringLiteral(QUILLON_ICON_DIR "/%1/" QUILLON_APP_ID ".png").arg(size);
        const QImage rendered(file);
        QVERIFY2(!rendered.isNull(), qPrintable(file));
        QCOMPARE(rendered.size(), QSize(size, size));

        const QImage a = rendered.convertToFormat(QImage::Format_ARGB32_Premultiplied);
        const QImage b = StatusGlyph::appIcon(size).convertToFormat(QImage::Format_ARGB32_Premultiplied);
        // Two rasterisers differ along the edges (a mean of 5 at 16 px, under 1
        // from 48 px); a shape moved by one grid unit, rounder corners or another
        // shade differ over whole areas (a mean of 8 or more at every size).
        qint64 total = 0;
        int farOff = 0;
        for (int i = 0; i < size * size; ++i) {
            const QRgb p = a.pixel(i % size, i / size), q = b.pixel(i % size, i / size);
            const int d = qMax(qMax(qAbs(qRed(p) - qRed(q)), qAbs(qGreen(p) - qGreen(q))),
                               qMax(qAbs(qBlue(p) - qBlue(q)), qAbs(qAlpha(p) - qAlpha(q))));
            total += d;
            farOff += d > 64;
        }
        const double mean = double(total) / (size * size);
        QVERIFY2(mean < 7.0, qPrintable(QStringLiteral("mean difference %1").arg(mean)));
        QVERIFY2(farOff <= size / 4, qPrintable(QStringLiteral("%1 pixels far off").arg(farOff)));
    }
};

QTEST_GUILESS_MAIN(TestAppIcon)
#include "tst_app_icon.moc"
