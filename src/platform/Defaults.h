#pragma once

#include <QString>
#include <QVariant>
#include <memory>

class QSettings;

// The user's preferences store. A key is either absent or holds a value that
// keeps its type (boolean, integer, number, string, bytes) across processes.
// The file is $XDG_CONFIG_HOME/Quillon/QuillonServer.conf (default
// ~/.config); every write reaches the disk before the setter returns, through
// a temporary file renamed over the old one. Lines this version cannot read
// are absent to it and written back as they stand. A failed write is
// reported to SaveFailures; the value is still kept for this run.
class Defaults
{
public:
    static Defaults &standard();
    // Drops the standard store so that the next standard() reads the
    // environment ($XDG_CONFIG_HOME, $HOME) again. For tests.
    static void resetStandard();

    explicit Defaults(const QString &fileName);
    ~Defaults();
    Defaults(const Defaults &) = delete;
    Defaults &operator=(const Defaults &) = delete;

    QString fileName() const;

    // An invalid QVariant means absent.
    QVariant objectForKey(const QString &key) const;
    bool contains(const QString &key) const;
    // Absent reads as false / 0 / empty. Numbers and numeric strings convert
    // as on the original platform ("YES"/"true" are true for booleans).
    bool boolForKey(const QString &key) const;
    qint64 integerForKey(const QString &key) const;
    double doubleForKey(const QString &key) const;
    QString stringForKey(const QString &key) const;

    // An invalid QVariant removes the key.
    void setObject(const QVariant &value, const QString &key);
    void setBool(bool value, const QString &key);
    void setInteger(qint64 value, const QString &key);
    void setDouble(double value, const QString &key);
    void setString(const QString &value, const QString &key);
    void removeObjectForKey(const QString &key);

private:
    void save();

    std::unique_ptr<QSettings> m_settings;
};
