#include "server/PasswordDigest.h"

#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

class TestPasswordDigest : public QObject
{
    Q_OBJECT

private slots:
    void matchesIndependentSha1_data();
    void matchesIndependentSha1();
    void emptyPasswordIsNotSalted();
};

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

void TestPasswordDigest::matchesIndependentSha1_data()
{
    QTest::addColumn<QString>("password");
    QTest::addColumn<QByteArray>("hashedBytes");

    QTest::newRow("ascii") << QStringLiteral("secret") << QByteArray("Q#48secret&5m");
    QTest::newRow("one character") << QStringLiteral("x") << QByteArray("Q#48x&5m");
    QTest::newRow("salt-like text") << QStringLiteral("%@&5m") << QByteArray("Q#48%@&5m&5m");
    QTest::newRow("non-ascii") << QStringLiteral("pässwörd ключ 🎬")
                               << (QByteArray("Q#48") + QStringLiteral("pässwörd ключ 🎬").toUtf8() + "&5m");
    // Hashing stops at the first zero byte, salt end included.
    QTest::newRow("embedded nul") << QString::fromUtf16(u"ab\0cd", 5) << QByteArray("Q#48ab");
    QTest::newRow("leading nul") << QString::fromUtf16(u"\0cd", 3) << QByteArray("Q#48");
}

void TestPasswordDigest::matchesIndependentSha1()
{
    QFETCH(QString, password);
    QFETCH(QByteArray, hashedBytes);

    const QString digest = PasswordDigest::getSHA1(password);
    QVERIFY2(QRegularExpression(QStringLiteral("^[0-9A-F]{40}$")).match(digest).hasMatch(), qPrintable(digest));
    QCOMPARE(digest, sha1sum(hashedBytes));
}

void TestPasswordDigest::emptyPasswordIsNotSalted()
{
    const QString empty = sha1sum(QByteArray());
    QCOMPARE(empty, QStringLiteral("DA39A3EE5E6B4B0D3255BFEF95601890AFD80709"));
    QCOMPARE(PasswordDigest::getSHA1(QStringLiteral("")), empty);
    QCOMPARE(PasswordDigest::getSHA1(QString()), empty);
    // The salt alone is not what an empty password hashes to.
    QVERIFY(PasswordDigest::getSHA1(QStringLiteral("")) != sha1sum("Q#48&5m"));
}

QTEST_GUILESS_MAIN(TestPasswordDigest)
#include "tst_password_digest.moc"
