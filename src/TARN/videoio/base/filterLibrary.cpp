#include "base/filterLibrary.h"

#include "base/checks.h"

#include <string>

#ifndef TARN_LINK_FILTERS
#include <dlfcn.h>
#endif

namespace tio::ffmpeg::detail {

namespace {

#ifdef TARN_LINK_FILTERS

#define TARN_FIND(name) (&::name)

#else

/// The library of the release whose headers were compiled; another would have other structures.
void* openLibrary() {
    void* const library = dlopen(compat::filterLibraryFile, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const char* const reason = dlerror();
        failPlainly(std::string("Could not load libavfilter: ") +
                    (reason != nullptr ? reason : compat::filterLibraryFile));
    }
    return library;
}

template <typename Function>
Function find(void* library, const char* name) {
    void* const function = dlsym(library, name);
    if (function == nullptr)
        failPlainly(std::string(compat::filterLibraryFile) + " has no function " + name);
    return reinterpret_cast<Function>(function);
}

#define TARN_FIND(name) find<decltype(&::name)>(library, #name)

#endif

FilterLibrary loadFilterLibrary() {
#ifndef TARN_LINK_FILTERS
    void* const library = openLibrary(); // never closed: there is no time when nobody uses it
#endif
    return {TARN_FIND(avfilter_version),
            TARN_FIND(avfilter_graph_alloc),
            TARN_FIND(avfilter_graph_free),
            TARN_FIND(avfilter_graph_config),
            TARN_FIND(avfilter_graph_create_filter),
            TARN_FIND(avfilter_graph_parse_ptr),
            TARN_FIND(avfilter_get_by_name),
            TARN_FIND(avfilter_inout_alloc),
            TARN_FIND(avfilter_inout_free),
            TARN_FIND(av_buffersrc_add_frame_flags),
            TARN_FIND(av_buffersink_get_frame)};
}

#undef TARN_FIND

} // namespace

const FilterLibrary& filterLibrary() {
    static const FilterLibrary library = loadFilterLibrary();
    return library;
}

} // namespace tio::ffmpeg::detail
