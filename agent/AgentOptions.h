// Options of the class-cache agent, parsed from the text after "=" in -agentpath.
#pragma once

#include <string>
#include <vector>

namespace miniagent {

struct AgentOptions {
    std::string mode;
    std::string classCacheFolder;
    std::string classLoadUrlPrefix;
    // One short note per oddity met (unknown key, duplicate, missing value...). The agent
    // reports them but never fails because of them.
    std::vector<std::string> notes;
};

// Parses "key=value;key=value". A null or empty text gives empty options. Values of
// "mode" and "class-cache-folder" end at the next ";". The URL prefix may itself hold
// ";" and "=": its value runs to the next ";" that starts another known key, or to the
// end. A repeated key keeps its last value.
AgentOptions parseAgentOptions(const char *options);

// Whether every existing component of the folder's path is safe to load classes from:
// owned by this user or by root, and not writable by others unless sticky (like /tmp).
// On false, *why names the first offending component.
bool isTrustedFolder(const std::string &folder, std::string *why);

// Creates the folder and its missing parents (mode 0700 for the ones it makes).
bool makeFolders(const std::string &folder, std::string *why);

} // namespace miniagent
