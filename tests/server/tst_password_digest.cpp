#include "server/PasswordDigest.h"

#include <QProcess>
#include <QtTest>

// SHA-1 of the bytes by the system's sha1sum, upper-cased.
static QString sha1sum(const QByteArray &bytes)
{
    QProcess p;
    p.start(QStringLiteral("sha1sum"), {QStringLiteral("-")});
    if (!p.waitForStarted(10000))
        return QStringLiteral("sha1sum did not start");
    p.write(bytes);
    p.closeWriteChannel();
    if (!p.waitForFinished(10000))
        return QStringLiteral("sha1sum did not finish");
    return QString::fromLatin1(p.readAllStandardOutput().left(40)).toUpper();
}

class TestPasswordDigest : public QObject
{
    Q_OBJECT

private slots:
    void matchesIndependentSha1_data()
    {
        QTest::addColumn<QString>("password");
        QTest::addColumn<QByteArray>("hashedBytes");

        QTest::newRow("ascii") << QStringLiteral("secret") << QByteArray("Q#48secret&5m");
        QTest::newRow("non-ascii") << QStringLiteral("pässwörd ключ 🎬")
                                   << (QByteArray("Q#48") + QStringLiteral("pässwörd ключ 🎬").toUtf8() + "&5m");
        // Hashing stops at the first zero byte, salt end included.
        QTest::newRow("embedded nul") << QString::fromUtf16(u"ab\0cd", 5) << QByteArray("Q#48ab");
        // An empty password is not salted at all.
        QTest::newRow("empty") << QStringLiteral("") << QByteArray();
        QTest::newRow("null") << QString() << QByteArray();
    }

    void matchesIndependentSha1()
    {
        QFETCH(QString, password);
        QFETCH(QByteArray, hashedBytes);
        QCOMPARE(PasswordDigest::getSHA1(password), sha1sum(hashedBytes));
    }
};

QTEST_GUILESS_MAIN(TestPasswordDigest)
#include "tst_password_digest.moc"
