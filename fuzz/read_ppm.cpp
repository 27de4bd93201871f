// Any bytes as a PPM image: it is read, one image after the other, or refused.

#include <TARN/core/Exception.h>
#include <TARN/imageio/ppm.h>

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    std::istringstream stream(std::string(reinterpret_cast<const char*>(bytes), count));
    try {
        while (true) {
            const auto image = tio::readPpm(stream);
            if (image.rows() <= 0 || image.cols() <= 0)
                std::abort();
        }
    } catch (const tio::Exception&) {
    }
    return 0;
}
