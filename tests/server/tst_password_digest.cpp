#include "server/PasswordDigest.h"

#include <QCryptographicHash>
#include <QtTest>

class TestPasswordDigest : public QObject
{
    Q_OBJECT

private slots:
    // The upper-case SHA-1 of exactly these salted bytes.
    void hashesTheSaltedBytes_data()
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

    void hashesTheSaltedBytes()
    {
        QFETCH(QString, password);
        QFETCH(QByteArray, hashedBytes);
        const QByteArray sha1 = QCryptographicHash::hash(hashedBytes, QCryptographicHash::Sha1).toHex().toUpper();
        QCOMPARE(PasswordDigest::getSHA1(password), QString::fromLatin1(sha1));
    }
};

QTEST_GUILESS_MAIN(TestPasswordDigest)
#include "tst_password_digest.moc"
