#pragma once

#include <QList>
#include <QString>

// Start at login through XDG autostart: every ".desktop" file of the
// autostart folder is an entry, and the program named by its Exec= line is
// the entry's path. This program's entry is one whose path equals
// programPath() exactly: no case folding, no normalisation, no link
// resolution.
namespace StartAtLogin {

// $XDG_CONFIG_HOME/autostart (default ~/.config/autostart), or the folder
// given to setAutostartFolder().
QString autostartFolder();
void setAutostartFolder(const QString &folder); // empty: back to the default

// The path this program is known by in Exec= lines: the running executable,
// or the path given to setProgramPath().
QString programPath();
void setProgramPath(const QString &path); // empty: back to the executable

// Whether an effective entry of the autostart folder starts this program.
// A missing folder reads as no.
bool startOnLogin();

// Adds or removes this program's entry. Nothing is written when the wish is
// already met. Enabling makes a disabled entry of this program effective
// again, else adds one; it fails, writing nothing, when the autostart folder
// does not exist. Returns false when the wish could not be carried out.
bool setStartOnLogin(bool wanted);

// One desktop entry of the folder. Two entries are equal when they start the
// same program with the same "launch hidden" flag, whatever their file names.
struct Entry {
    QString fileName;
    QString path;        // program of Exec=; empty when there is none
    bool hide = false;   // X-Quillon-Hide=true: launch hidden
    // Hidden=true (the entry counts as deleted) or
    // X-GNOME-Autostart-enabled=false: the desktop does not start it.
    bool disabled = false;
    bool operator==(const Entry &other) const
    {
        return path == other.path && hide == other.hide;
    }
};
// The entries of a folder in file-name order; none when it is missing.
QList<Entry> entries(const QString &folder);

// The program of an Exec= value as written in a file: string escapes,
// quoting and field codes undone. Empty for a value that cannot be parsed.
QString programFromExec(const QString &value);

// The Exec= value that runs `path` with no arguments, escaped and quoted as
// desktop entries require.
QString execValueFor(const QString &path);

}
