// A JVMTI agent that puts a per-version class cache folder on the system class path.
// Whatever goes wrong here, the JVM must still start: problems are reported on one
// line of standard error and Agent_OnLoad returns JNI_OK.
#include "AgentOptions.h"

#include <jvmti.h>

#include <cstdio>
#include <string>

namespace {

void report(const std::string &what)
{
    std::fprintf(stderr, "MiniAgent: %s\n", what.c_str());
    std::fflush(stderr);
}

std::string joined(const std::vector<std::string> &notes)
{
    std::string s;
    for (const std::string &n : notes)
        s += (s.empty() ? "" : "; ") + n;
    return s;
}

jint load(JavaVM *vm, const char *options)
{
    using namespace miniagent;
    AgentOptions opts = parseAgentOptions(options);
    std::vector<std::string> problems = opts.notes;
    if (!opts.mode.empty() && opts.mode != "fetch-absent-classes")
        problems.push_back("unknown mode " + opts.mode);

    std::string why;
    if (opts.classCacheFolder.empty()) {
        problems.push_back("no class-cache-folder; class cache off");
    } else if (!isTrustedFolder(opts.classCacheFolder, &why) || !makeFolders(opts.classCacheFolder, &why)
               || !isTrustedFolder(opts.classCacheFolder, &why)) {
        problems.push_back("class cache off: " + why);
    } else {
        jvmtiEnv *jvmti = nullptr;
        if (vm->GetEnv(reinterpret_cast<void **>(&jvmti), JVMTI_VERSION_1_2) != JNI_OK || !jvmti) {
            problems.push_back("no JVMTI environment; class cache off");
        } else {
            jvmtiError err = jvmti->AddToSystemClassLoaderSearch(opts.classCacheFolder.c_str());
            if (err != JVMTI_ERROR_NONE)
                problems.push_back("cannot add " + opts.classCacheFolder + " to the class path (JVMTI error "
                                   + std::to_string(static_cast<int>(err)) + ")");
        }
    }
    // Classes are only read from the cache; nothing is downloaded into it.
    if (!problems.empty())
        report(joined(problems));
    return JNI_OK;
}

} // namespace

extern "C" JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM *vm, char *options, void *)
{
    try {
        return load(vm, options);
    } catch (...) {
        report("internal error; class cache off");
        return JNI_OK;
    }
}

extern "C" JNIEXPORT void JNICALL Agent_OnUnload(JavaVM *)
{
}
