#include "platform/Defaults.h"

#include "platform/IntValue.h"
#include "platform/SaveFailures.h"

#include <QDir>
#include <QFileDevice>
#include <QFileInfo>
#include <QSettings>
#include <QTextStream>

namespace {

// A line this version cannot read (a type a later version writes, a damaged
// value, a comment): written back as it stands, and absent to every reader.
struct UnreadLine {
    QString text;
};

// Lines without a key are kept under names no key can have.
const QString kUnreadPrefix = QStringLiteral("\u0001unread ");

bool isUnread(const QVariant &value)
{
    return value.metaType() == QMetaType::fromType<UnreadLine>();
}

// One "key=type:value" line per key. QSettings' own INI format reads every
// integer and boolean back as a string; this one keeps the type.
QString escape(const QString &text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        switch (c.unicode()) {
        case '\\': out += QLatin1String("\\\\"); break;
        case '\n': out += QLatin1String("\\n"); break;
        case '\r': out += QLatin1String("\\r"); break;
        default: out += c;
        }
    }
    return out;
}

QString unescape(QStringView text)
{
    QString out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c != QLatin1Char('\\') || i + 1 == text.size()) {
            out += c;
            continue;
        }
        const QChar next = text[++i];
        out += next == QLatin1Char('n') ? QChar(u'\n') : next == QLatin1Char('r') ? QChar(u'\r') : next;
    }
    return out;
}

QString encodeValue(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("bool:true") : QStringLiteral("bool:false");
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::UShort:
        return QStringLiteral("int:") + QString::number(value.toLongLong());
    case QMetaType::ULong:
    case QMetaType::ULongLong:
        return QStringLiteral("int:") + QString::number(value.toULongLong());
    case QMetaType::Double:
    case QMetaType::Float:
        return QStringLiteral("real:") + QString::number(value.toDouble(), 'g', 17);
    case QMetaType::QByteArray:
        return QStringLiteral("bytes:") + QString::fromLatin1(value.toByteArray().toBase64());
    default:
        return QStringLiteral("string:") + escape(value.toString());
    }
}

QVariant decodeValue(QStringView text)
{
    const qsizetype colon = text.indexOf(QLatin1Char(':'));
    if (colon < 0)
        return QVariant();
    const QStringView type = text.left(colon);
    const QStringView body = text.mid(colon + 1);
    bool ok = false;
    if (type == QLatin1String("bool")) {
        if (body == QLatin1String("true"))
            return true;
        if (body == QLatin1String("false"))
            return false;
        return QVariant();
    }
    if (type == QLatin1String("int")) {
        const qlonglong v = body.toLongLong(&ok);
        if (ok)
            return v;
        const qulonglong u = body.toULongLong(&ok);
        return ok ? QVariant(u) : QVariant();
    }
    if (type == QLatin1String("real")) {
        const double v = body.toDouble(&ok);
        return ok ? QVariant(v) : QVariant();
    }
    if (type == QLatin1String("bytes")) {
        auto decoded = QByteArray::fromBase64Encoding(body.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
        return decoded ? QVariant(*decoded) : QVariant();
    }
    if (type == QLatin1String("string"))
        return unescape(body);
    return QVariant();
}

bool readFile(QIODevice &device, QSettings::SettingsMap &map)
{
    QTextStream in(&device);
    in.setEncoding(QStringConverter::Utf8);
    QString line;
    int unread = 0;
    while (in.readLineInto(&line)) {
        if (line.isEmpty())
            continue;
        qsizetype eq = line.indexOf(QLatin1Char('='));
        while (eq > 0 && line.at(eq - 1) == QLatin1Char('\\'))
            eq = line.indexOf(QLatin1Char('='), eq + 1);
        if (eq <= 0 || line.startsWith(QLatin1Char('#'))) {
            map.insert(kUnreadPrefix + QString::number(unread++), QVariant::fromValue(UnreadLine{line}));
            continue;
        }
        const QVariant value = decodeValue(QStringView(line).mid(eq + 1));
        map.insert(unescape(QStringView(line).left(eq)), value.isValid() ? value : QVariant::fromValue(UnreadLine{line}));
    }
    return true;
}

bool writeFile(QIODevice &device, const QSettings::SettingsMap &map)
{
    QTextStream out(&device);
    out.setEncoding(QStringConverter::Utf8);
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        if (isUnread(it.value())) {
            out << it.value().value<UnreadLine>().text << '\n';
            continue;
        }
        QString key = escape(it.key());
        key.replace(QLatin1Char('='), QLatin1String("\\="));
        out << key << '=' << encodeValue(it.value()) << '\n';
    }
    out.flush();
    // QSettings commits its QSaveFile without checking the final flush (Qt
    // 6.4), which would put a cut-off file in place of the old one.
    auto *file = qobject_cast<QFileDevice *>(&device);
    return out.status() == QTextStream::Ok && (!file || file->flush());
}

QSettings::Format typedFormat()
{
    static const QSettings::Format format = QSettings::registerFormat(QStringLiteral("conf"), readFile, writeFile);
    return format;
}

std::unique_ptr<Defaults> &standardStore()
{
    static std::unique_ptr<Defaults> store;
    return store;
}

QString standardFileName()
{
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty() || !QDir::isAbsolutePath(config))
        config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/Quillon/QuillonServer.conf");
}

} // namespace

Defaults &Defaults::standard()
{
    auto &store = standardStore();
    if (!store)
        store = std::make_unique<Defaults>(standardFileName());
    return *store;
}

void Defaults::resetStandard()
{
    standardStore().reset();
}

Defaults::Defaults(const QString &fileName)
    : m_settings(std::make_unique<QSettings>(fileName, typedFormat()))
{
}

Defaults::~Defaults() = default;

QString Defaults::fileName() const
{
    return m_settings->fileName();
}

QVariant Defaults::objectForKey(const QString &key) const
{
    const QVariant value = m_settings->value(key);
    return isUnread(value) ? QVariant() : value;
}

bool Defaults::contains(const QString &key) const
{
    return objectForKey(key).isValid();
}

bool Defaults::boolForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() == QMetaType::QString) {
        const QString text = value.toString().trimmed();
        if (text.compare(QLatin1String("yes"), Qt::CaseInsensitive) == 0
            || text.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0)
            return true;
        return text.toLongLong() != 0;
    }
    return value.isValid() && value.toDouble() != 0;
}

qint64 Defaults::integerForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() == QMetaType::QString)
        return longLongValue(value.toString()); // leading digits, as a text field's integer
    if (value.typeId() == QMetaType::Double)
        return qint64(value.toDouble());
    return value.toLongLong();
}

double Defaults::doubleForKey(const QString &key) const
{
    return objectForKey(key).toDouble();
}

QString Defaults::stringForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    if (value.typeId() == QMetaType::Bool)
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    return value.toString();
}

void Defaults::setObject(const QVariant &value, const QString &key)
{
    if (!value.isValid()) {
        removeObjectForKey(key);
        return;
    }
    m_settings->setValue(key, value);
    save();
}

void Defaults::setBool(bool value, const QString &key) { setObject(QVariant(value), key); }
void Defaults::setInteger(qint64 value, const QString &key) { setObject(QVariant(qlonglong(value)), key); }
void Defaults::setDouble(double value, const QString &key) { setObject(QVariant(value), key); }
void Defaults::setString(const QString &value, const QString &key) { setObject(QVariant(value), key); }

void Defaults::removeObjectForKey(const QString &key)
{
    // A line this version could not read stays: the key was absent to us.
    if (!contains(key))
        return;
    m_settings->remove(key);
    save();
}

void Defaults::save()
{
    // QSettings writes through a temporary file renamed over the old one.
    m_settings->sync();
    if (m_settings->status() == QSettings::NoError) {
        SaveFailures::saved(fileName());
        return;
    }
    // QSettings keeps its first error for good; a fresh copy tells whether
    // the file can be written again (the folder may have been repaired).
    // (Both share QSettings' cache of the file: take the values out first.)
    QList<std::pair<QString, QVariant>> values;
    const QStringList keys = m_settings->allKeys();
    for (const QString &key : keys)
        values.append({key, m_settings->value(key)});
    auto fresh = std::make_unique<QSettings>(fileName(), typedFormat());
    fresh->clear();
    for (const auto &[key, value] : std::as_const(values))
        fresh->setValue(key, value);
    fresh->sync();
    if (fresh->status() == QSettings::NoError) {
        m_settings = std::move(fresh);
        SaveFailures::saved(fileName());
        return;
    }
    const QFileInfo folder(QFileInfo(fileName()).absolutePath());
    SaveFailures::failed(fileName(), folder.exists() && !folder.isDir() ? QStringLiteral("%1 is not a folder").arg(folder.filePath())
                                                                        : QStringLiteral("the file or its folder is not writable"));
}
