#pragma once

#include <TARN/videoio/Source.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>

namespace tio::ffmpeg::detail {

/// What a Source consists of.
struct SourceRecipe {
    Source::Kind kind;
    std::string name;
    OpenOptions options;
    std::shared_ptr<const uint8_t> bytes; ///< of Kind::Memory
    size_t byteCount = 0;
    StreamFactory factory; ///< of Kind::Streams
};

/// What other files of the library need of a source beyond its public interface.
struct SourceAccess {
    [[nodiscard]] static const SourceRecipe& recipeOf(const Source& source) noexcept {
        return *source.recipe;
    }
};

/// A new stream of a source of memory or streams, at its first byte.
/// @throws tio::ffmpeg::Exception as throwStreamFailure()
[[nodiscard]] std::unique_ptr<ByteStream> openStream(const Source& source);

/// What a stream of the caller's has thrown, as an exception of the library that names the source
/// and holds the other; std::bad_alloc as it is.
[[noreturn]] void throwStreamFailure(const Source& source, const std::exception_ptr& thrown);

} // namespace tio::ffmpeg::detail
