#include "binding.h"

PYBIND11_MODULE(_native, module) {
    using namespace tio::python;
    module.doc() = "The library tarn_videoio as the package's own Python uses it.";
    bindFailures(module);
    bindLog(module);
    bindSources(module);
    bindImages(module);
    bindIndices(module);
    bindMedia(module);
    bindReaders(module);
    bindSound(module);
    bindWriters(module);
}
