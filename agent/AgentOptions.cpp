#include "AgentOptions.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace miniagent {

namespace {

const char *const kMode = "mode";
const char *const kCacheFolder = "class-cache-folder";
const char *const kUrlPrefix = "class-load-url-prefix";

bool startsKnownKey(const std::string &text, size_t pos)
{
    for (const char *key : {kMode, kCacheFolder, kUrlPrefix}) {
        size_t n = std::strlen(key);
        if (text.compare(pos, n, key) == 0 && pos + n < text.size() && text[pos + n] == '=')
            return true;
    }
    return false;
}

std::string trimmed(const std::string &s)
{
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos)
        return std::string();
    size_t e = s.find_last_not_of(" \t");
    return s.substr(b, e - b + 1);
}

} // namespace

AgentOptions parseAgentOptions(const char *options)
{
    AgentOptions result;
    if (!options) {
        result.notes.push_back("no options");
        return result;
    }
    const std::string text(options);
    bool seenMode = false, seenFolder = false, seenUrl = false;
    size_t pos = 0;
    while (pos <= text.size()) {
        size_t end = text.find(';', pos);
        if (end == std::string::npos)
            end = text.size();
        std::string segment = text.substr(pos, end - pos);
        size_t eq = segment.find('=');
        std::string key = trimmed(eq == std::string::npos ? segment : segment.substr(0, eq));
        if (key == kUrlPrefix && eq != std::string::npos) {
            // The URL runs on over ";" until another known key begins.
            size_t valueStart = pos + eq + 1;
            size_t stop = valueStart;
            for (;;) {
                stop = text.find(';', stop);
                if (stop == std::string::npos || startsKnownKey(text, stop + 1))
                    break;
                ++stop;
            }
            if (stop == std::string::npos)
                stop = text.size();
            if (seenUrl)
                result.notes.push_back("duplicate key " + key);
            seenUrl = true;
            result.classLoadUrlPrefix = text.substr(valueStart, stop - valueStart);
            end = stop;
        } else if (segment.empty() || trimmed(segment).empty()) {
            // ";;" or a trailing ";": nothing to say
        } else if (key.empty()) {
            result.notes.push_back("value without a key");
        } else if (eq == std::string::npos) {
            result.notes.push_back("no value for " + key);
        } else {
            std::string value = segment.substr(eq + 1);
            if (key == kMode) {
                if (seenMode)
                    result.notes.push_back("duplicate key " + key);
                seenMode = true;
                result.mode = value;
            } else if (key == kCacheFolder) {
                if (seenFolder)
                    result.notes.push_back("duplicate key " + key);
                seenFolder = true;
                result.classCacheFolder = value;
            } else {
                result.notes.push_back("unknown key " + key);
            }
        }
        if (end >= text.size())
            break;
        pos = end + 1;
    }
    return result;
}

bool isTrustedFolder(const std::string &folder, std::string *why)
{
    if (folder.empty() || folder[0] != '/') {
        if (why)
            *why = "not an absolute path: " + folder;
        return false;
    }
    const uid_t me = geteuid();
    std::string path;
    size_t pos = 0;
    while (pos < folder.size()) {
        size_t next = folder.find('/', pos + 1);
        if (next == std::string::npos)
            next = folder.size();
        path = folder.substr(0, next);
        pos = next;
        if (path.size() > 1 && path.back() == '/')
            continue;
        struct stat st;
        if (lstat(path.c_str(), &st) != 0) {
            if (errno == ENOENT)
                break; // the rest will be made by us
            if (why)
                *why = path + ": " + std::strerror(errno);
            return false;
        }
        if (S_ISLNK(st.st_mode) && st.st_uid != me && st.st_uid != 0) {
            if (why)
                *why = path + " is a link owned by another user";
            return false;
        }
        if (stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
            if (why)
                *why = path + " is not a folder";
            return false;
        }
        if (st.st_uid != me && st.st_uid != 0) {
            if (why)
                *why = path + " belongs to another user";
            return false;
        }
        if ((st.st_mode & (S_IWGRP | S_IWOTH)) && !(st.st_mode & S_ISVTX)) {
            if (why)
                *why = path + " is writable by others";
            return false;
        }
    }
    return true;
}

bool makeFolders(const std::string &folder, std::string *why)
{
    if (folder.empty()) {
        if (why)
            *why = "empty folder name";
        return false;
    }
    size_t pos = 0;
    for (;;) {
        size_t next = folder.find('/', pos + 1);
        std::string path = folder.substr(0, next);
        if (!path.empty() && path != "/" && mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
            if (why)
                *why = "cannot create " + path + ": " + std::strerror(errno);
            return false;
        }
        if (next == std::string::npos || next + 1 >= folder.size())
            break;
        pos = next;
    }
    struct stat st;
    if (stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        if (why)
            *why = folder + " is not a folder";
        return false;
    }
    return true;
}

} // namespace miniagent
