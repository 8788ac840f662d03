#include "preload.h"

namespace sandbox {

std::string PreloadList(const std::string& libraries) {
#ifdef VELA_ASAN_RUNTIME
    const std::string runtime = VELA_ASAN_RUNTIME;
    if (libraries.compare(0, runtime.size(), runtime) != 0) {
        return libraries.empty() ? runtime : runtime + ":" + libraries;
    }
#endif
    return libraries;
}

}  // namespace sandbox
