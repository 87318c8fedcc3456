// quillscan: scans directory trees into a census.
#include <clocale>
#include <cstdio>
#include <exception>

#include "runtime/xpk_exception.h"
#include "scan_run.h"

int main(int argc, char** argv) {
    std::setlocale(LC_CTYPE, "");
    XPK_ThreadScope thread(true);
    try {
        quillscan::Options options;
        if (std::optional<int> code = quillscan::parseOptions(argc, argv, options)) return *code;
        return quillscan::run(options);
    } catch (const XPK_Exception& e) {
        std::fprintf(stderr, "quillscan: %s\n", e.message().c_str());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "quillscan: %s\n", e.what());
    }
    return 1;
}
