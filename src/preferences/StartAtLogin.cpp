#include "preferences/StartAtLogin.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSet>

namespace {

// Desktop entries are small; a larger file is not read past this.
constexpr qint64 kMaxEntrySize = 256 * 1024;

QString &folderOverride()
{
    static QString folder;
    return folder;
}

QString &programOverride()
{
    static QString path;
    return path;
}

bool isBlank(QChar c)
{
    return c == QLatin1Char(' ') || c == QLatin1Char('\t') || c == QLatin1Char('\n') || c == QLatin1Char('\r');
}

// The escapes of the "string" value type: \s \n \t \r \\. Anything else after
// a backslash is kept as it stands, for the quoting rules to see.
QString unescapeString(const QString &value)
{
    QString out;
    out.reserve(value.size());
    for (qsizetype i = 0; i < value.size(); ++i) {
        const QChar c = value.at(i);
        if (c != QLatin1Char('\\') || i + 1 == value.size()) {
            out += c;
            continue;
        }
        const QChar next = value.at(i + 1);
        switch (next.unicode()) {
        case 's': out += QLatin1Char(' '); ++i; break;
        case 'n': out += QLatin1Char('\n'); ++i; break;
        case 't': out += QLatin1Char('\t'); ++i; break;
        case 'r': out += QLatin1Char('\r'); ++i; break;
        case '\\': out += QLatin1Char('\\'); ++i; break;
        default: out += c; break;
        }
    }
    return out;
}

QString escapeString(const QString &value)
{
    QString out;
    out.reserve(value.size() + 8);
    for (const QChar c : value) {
        switch (c.unicode()) {
        case '\\': out += QLatin1String("\\\\"); break;
        case '\n': out += QLatin1String("\\n"); break;
        case '\t': out += QLatin1String("\\t"); break;
        case '\r': out += QLatin1String("\\r"); break;
        default: out += c;
        }
    }
    return out;
}

// Splits a command line the way desktop environments do: blanks separate
// arguments, double quotes group with \" \` \$ \\ escapes inside, single
// quotes group literally, a backslash outside quotes takes the next
// character. An unterminated quote makes the whole line unusable.
bool splitArguments(const QString &line, QStringList *args)
{
    enum { Plain, Double, Single } state = Plain;
    QString current;
    bool inArgument = false;
    for (qsizetype i = 0; i < line.size(); ++i) {
        const QChar c = line.at(i);
        if (state == Double) {
            if (c == QLatin1Char('"')) {
                state = Plain;
            } else if (c == QLatin1Char('\\') && i + 1 < line.size()
                       && QStringLiteral("\"`$\\").contains(line.at(i + 1))) {
                current += line.at(++i);
            } else {
                current += c;
            }
            continue;
        }
        if (state == Single) {
            if (c == QLatin1Char('\''))
                state = Plain;
            else
                current += c;
            continue;
        }
        if (isBlank(c)) {
            if (inArgument)
                args->append(current);
            current.clear();
            inArgument = false;
            continue;
        }
        inArgument = true;
        if (c == QLatin1Char('"'))
            state = Double;
        else if (c == QLatin1Char('\''))
            state = Single;
        else if (c == QLatin1Char('\\') && i + 1 < line.size())
            current += line.at(++i);
        else
            current += c;
    }
    if (state != Plain)
        return false;
    if (inArgument)
        args->append(current);
    return true;
}

bool isFieldCode(const QString &arg)
{
    return arg.size() == 2 && arg.at(0) == QLatin1Char('%')
        && QStringLiteral("fFuUdDnNickvm").contains(arg.at(1));
}

const QLatin1String kHiddenKey("Hidden");
const QLatin1String kEnabledKey("X-GNOME-Autostart-enabled");
const QLatin1String kHideKey("X-Quillon-Hide");

// Calls `visit` with the key and value of each line of the [Desktop Entry]
// group; other groups, comments and malformed lines are skipped.
template <class Visit>
void forEachMainKey(const QString &text, Visit visit)
{
    bool inMainGroup = false;
    for (QStringView line : QStringView(text).split(QLatin1Char('\n'))) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        if (line.startsWith(QLatin1Char('['))) {
            inMainGroup = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        const qsizetype eq = line.indexOf(QLatin1Char('='));
        if (inMainGroup && eq > 0)
            visit(line.left(eq).trimmed(), line.mid(eq + 1).trimmed());
    }
}

// Exec= (first one, not localised), the hide flag and whether the desktop
// skips the entry; the first line of each key counts.
StartAtLogin::Entry readEntry(const QString &filePath)
{
    StartAtLogin::Entry entry;
    entry.fileName = QFileInfo(filePath).fileName();
    QFile file(filePath);
    if (!file.open(QIODevice::ReadOnly))
        return entry;
    const QString text = QString::fromUtf8(file.read(kMaxEntrySize));
    QSet<QStringView> seen;
    bool hidden = false, enabled = true;
    forEachMainKey(text, [&](QStringView key, QStringView value) {
        if (seen.contains(key))
            return;
        seen.insert(key);
        if (key == QLatin1String("Exec"))
            entry.path = StartAtLogin::programFromExec(value.toString());
        else if (key == kHiddenKey)
            hidden = value == QLatin1String("true");
        else if (key == kEnabledKey)
            enabled = value != QLatin1String("false");
        else if (key == kHideKey)
            entry.hide = value == QLatin1String("true");
    });
    entry.disabled = hidden || !enabled;
    return entry;
}

// The entry's text with Hidden= and X-GNOME-Autostart-enabled= of its main
// group turned on, every other byte kept; empty when it cannot be read whole.
QByteArray enabledText(const QString &filePath)
{
    QFile file(filePath);
    if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxEntrySize)
        return QByteArray();
    QByteArray out;
    bool inMainGroup = false;
    for (const QByteArray &line : file.readAll().split('\n')) {
        const QByteArray trimmed = line.trimmed();
        if (trimmed.startsWith('['))
            inMainGroup = trimmed == "[Desktop Entry]";
        const QByteArray key = trimmed.left(trimmed.indexOf('=')).trimmed();
        if (inMainGroup && key == kHiddenKey.data())
            out += "Hidden=false";
        else if (inMainGroup && key == kEnabledKey.data())
            out += "X-GNOME-Autostart-enabled=true";
        else
            out += line;
        out += '\n';
    }
    out.chop(1);
    return out;
}

bool writeAtomically(const QString &filePath, const QByteArray &bytes)
{
    QSaveFile file(filePath);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(bytes);
    return file.commit();
}

QString entryText(const QString &program)
{
    return QStringLiteral("[Desktop Entry]\n"
                          "Type=Application\n"
                          "Name=Quillon Server\n"
                          "Comment=Shares your videos with your devices\n"
                          "Exec=%1\n"
                          "Terminal=false\n"
                          "Hidden=false\n"
                          "X-GNOME-Autostart-enabled=true\n"
                          "X-Quillon-Hide=false\n")
        .arg(StartAtLogin::execValueFor(program));
}

// A file name that no entry uses yet: "quillon-server.desktop", else with
// "-2", "-3", ... appended.
QString freeFileName(const QDir &folder)
{
    const QString base = QStringLiteral("quillon-server");
    if (!QFileInfo::exists(folder.filePath(base + QStringLiteral(".desktop"))))
        return base + QStringLiteral(".desktop");
    for (int i = 2; i < 10000; ++i) {
        const QString name = QStringLiteral("%1-%2.desktop").arg(base).arg(i);
        if (!QFileInfo::exists(folder.filePath(name)))
            return name;
    }
    return QString();
}

bool folderExists(const QString &folder)
{
    const QFileInfo info(folder);
    return info.exists() && info.isDir();
}

}

QString StartAtLogin::autostartFolder()
{
    if (!folderOverride().isEmpty())
        return folderOverride();
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty() || !QDir::isAbsolutePath(config))
        config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/autostart");
}

void StartAtLogin::setAutostartFolder(const QString &folder)
{
    folderOverride() = folder;
}

QString StartAtLogin::programPath()
{
    if (!programOverride().isEmpty())
        return programOverride();
    if (QCoreApplication::instance())
        return QCoreApplication::applicationFilePath();
    return QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget();
}

void StartAtLogin::setProgramPath(const QString &path)
{
    programOverride() = path;
}

QString StartAtLogin::programFromExec(const QString &value)
{
    QStringList args;
    if (!splitArguments(unescapeString(value), &args))
        return QString();
    for (const QString &arg : std::as_const(args)) {
        if (isFieldCode(arg))
            continue;
        QString program = arg;
        program.replace(QLatin1String("%%"), QLatin1String("%"));
        return program;
    }
    return QString();
}

QString StartAtLogin::execValueFor(const QString &path)
{
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    QString arg = path;
    arg.replace(QLatin1Char('%'), QLatin1String("%%"));
    bool quote = arg.isEmpty();
    for (const QChar c : std::as_const(arg))
        quote = quote || reserved.contains(c);
    if (quote) {
        QString quoted = QStringLiteral("\"");
        for (const QChar c : std::as_const(arg)) {
            if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') || c == QLatin1Char('\\'))
                quoted += QLatin1Char('\\');
            quoted += c;
        }
        quoted += QLatin1Char('"');
        arg = quoted;
    }
    return escapeString(arg);
}

QList<StartAtLogin::Entry> StartAtLogin::entries(const QString &folder)
{
    QList<Entry> list;
    if (!folderExists(folder))
        return list;
    const QDir dir(folder);
    const QStringList names = dir.entryList({QStringLiteral("*.desktop")}, QDir::Files, QDir::Name);
    for (const QString &name : names)
        list.append(readEntry(dir.filePath(name)));
    return list;
}

bool StartAtLogin::startOnLogin()
{
    const QString program = programPath();
    const QList<Entry> list = entries(autostartFolder());
    for (const Entry &entry : list) {
        if (entry.path == program && !entry.disabled)
            return true;
    }
    return false;
}

bool StartAtLogin::setStartOnLogin(bool wanted)
{
    const QString folder = autostartFolder();
    if (!folderExists(folder))
        return !wanted; // no list: nothing to remove, and nowhere to add

    const QString program = programPath();
    const QList<Entry> list = entries(folder);
    // Disabled entries are not in the list the desktop starts from; the last
    // one of this program is what enabling brings back.
    const Entry *match = nullptr;
    const Entry *disabled = nullptr;
    for (const Entry &entry : list) {
        if (entry.path == program)
            (entry.disabled ? disabled : match) = &entry;
    }

    const QDir dir(folder);
    if (!wanted && match) {
        // Every effective entry equal to the last match goes, as one list
        // removal would.
        bool ok = true;
        const Entry last = *match;
        for (const Entry &entry : list) {
            if (entry == last && !entry.disabled)
                ok = QFile::remove(dir.filePath(entry.fileName)) && ok;
        }
        return ok;
    }
    if (wanted && !match) {
        if (disabled) {
            const QByteArray text = enabledText(dir.filePath(disabled->fileName));
            if (!text.isEmpty())
                return writeAtomically(dir.filePath(disabled->fileName), text);
        }
        const QString name = freeFileName(dir);
        return !name.isEmpty() && writeAtomically(dir.filePath(name), entryText(program).toUtf8());
    }
    return true; // already as wanted: nothing is written
}
