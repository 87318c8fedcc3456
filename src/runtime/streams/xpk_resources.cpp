// Embedded files and deferred libraries.
//
// A file is written beside its target and then moved over it, so that a second server that starts meanwhile,
// or a process that has the old library mapped, never sees half of one. Unpacking happens at every start:
// the program and its libraries then always fit together.
#include "runtime/streams/xpk_resources.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <mutex>

#include "platform/pf_links.h"
#include "platform/pf_listing.h"
#include "platform/pf_process.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/epa_wildmatch.h"
#include "runtime/streams/epa_ofilestream.h"

namespace {

constexpr char JavaLibrary[] = "libjvm.so";
constexpr char DefaultJava[] = "/usr/lib/jvm/default-java/lib/server/libjvm.so";

struct Embedded {
    const char* name;
    const void* bytes;
    size_t size;
};

std::vector<Embedded>& table() {
    static std::vector<Embedded> entries;
    return entries;
}

struct JavaPaths {
    std::mutex lock;
    std::vector<std::string> patterns;  // guarded by lock
};
JavaPaths& javaPaths() {
    static JavaPaths paths;
    return paths;
}

// Names of the files in a folder that match a pattern, sorted. 0 or an errno.
int listFiles(const std::string& folder, const std::string& pattern, std::vector<std::string>& names) {
    int error =
        platform::listDirectory(folder, {.extended = false}, [&](const platform::DirectoryEntry& entry) {
            bool isFolder = S_ISDIR(entry.details.mode);
            if (!isFolder && EPA_WildMatch(entry.name, pattern)) names.push_back(entry.name);
            return true;
        });
    std::sort(names.begin(), names.end());
    return error;
}

std::vector<std::string> filesOf(const std::string& folder, const std::string& pattern) {
    std::vector<std::string> names;
    XPK_ThrowSystemError("opendir", listFiles(folder, pattern, names));
    return names;
}

std::string extensionOf(const std::string& file) {
    size_t dot = file.rfind('.');
    return dot == std::string::npos ? "" : file.substr(dot + 1);
}

bool isCancelled(const std::string& file, const std::string& current) {
    std::string extension = extensionOf(file);
    for (const std::string& name : filesOf(current, "*.def"))
        if (name.substr(0, name.size() - 3) + extension == file) return true;
    auto own = filesOf(current, "*." + extension);
    return std::find(own.begin(), own.end(), file) != own.end();
}

void writeFile(const std::string& path, const Embedded& entry) {
    std::string beside = path + "." + std::to_string(getpid()) + ".new";
    try {
        EPA_OFileStream stream;
        stream.open(EPA_FileName{beside, beside}, "wb");
        stream.write(entry.bytes, entry.size);
        stream.close();
        if (rename(beside.c_str(), path.c_str()) != 0) EPA_RaiseFileError(errno, path);
    } catch (...) {
        unlink(beside.c_str());
        throw;
    }
}

void component(bool up, const char*, void*) {
    if (!up || table().empty()) return;
    std::string program;
    XPK_ThrowSystemError("readlink", platform::programPath(program));
    XPK_UnpackEmbedded(".", platform::directoryOf(program));
}
const EPA_Component registered(component, nullptr, "XPK_Resources");

void* loadFirst(const std::string& pattern) {
    std::string folder = platform::directoryOf(pattern);
    std::vector<std::string> names;
    // A folder that is not there is a search path without a match.
    if (listFiles(folder, pattern.substr(pattern.rfind('/') + 1), names) != 0) return nullptr;
    for (const std::string& name : names)
        if (void* library = dlopen((folder + "/" + name).c_str(), RTLD_NOW | RTLD_GLOBAL)) return library;
    return nullptr;
}

void* searchJava() {
    for (const std::string& pattern : XPK_JavaSearchPaths())
        if (void* library = loadFirst(pattern)) return library;
    std::string home;
    if (platform::environmentGet("JAVA_HOME", home) == 0 && !home.empty()) {
        home += "/lib/server/";
        if (void* library = dlopen((home + JavaLibrary).c_str(), RTLD_NOW | RTLD_GLOBAL)) return library;
    }
    return dlopen(DefaultJava, RTLD_NOW | RTLD_GLOBAL);
}

}  // namespace

void XPK_RegisterEmbedded(const char* name, const void* bytes, size_t size) {
    XPK_Assert(name && (bytes || size == 0));
    table().push_back({name, bytes, size});
}

std::string XPK_EmbeddedFileName(const std::string& name) {
    std::string file;
    for (size_t i = 0; i < name.size(); ++i) {
        char c = name[i];
        if (c == '_' && i + 1 < name.size() && name[i + 1] == '_') {
            file += '.';
            ++i;
        } else {
            file += c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
        }
    }
    return file;
}

void XPK_UnpackEmbedded(const std::string& current, const std::string& target) {
    for (const Embedded& entry : table()) {
        std::string file = XPK_EmbeddedFileName(entry.name);
        if (file.empty() || file.find('/') != std::string::npos)
            XPK_Raise("RuntimeError", "'$name' cannot be the name of an embedded file")
                .string("name", entry.name)
                .raise();
        if (!isCancelled(file, current)) writeFile(target + "/" + file, entry);
    }
}

void* XPK_LoadLibrary(const std::string& name) {
    std::string decode = "the name cannot be one";
    if (!name.empty() && name.find('\0') == std::string::npos) {
        if (void* library = dlopen(name.c_str(), RTLD_NOW | RTLD_GLOBAL)) return library;
        if (const char* text = dlerror()) decode = text;
        if (name == JavaLibrary)
            if (void* library = searchJava()) return library;
    }
    // The name stands in the text itself; its dollars must not be taken for fields.
    std::string show = "Could not load '";
    for (char c : name) show.append(c == '$' ? 2 : 1, c);
    XPK_Raise("RuntimeError", show + "'").string("decode", decode).fields("").raise();
}

void XPK_SetJavaSearchPaths(std::vector<std::string> patterns) {
    std::lock_guard hold(javaPaths().lock);
    javaPaths().patterns = std::move(patterns);
}

void XPK_AddJavaSearchPath(const std::string& pattern) {
    std::lock_guard hold(javaPaths().lock);
    javaPaths().patterns.push_back(pattern);
}

std::vector<std::string> XPK_JavaSearchPaths() {
    std::lock_guard hold(javaPaths().lock);
    return javaPaths().patterns;
}
