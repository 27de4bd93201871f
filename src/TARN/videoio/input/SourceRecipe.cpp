#include "input/SourceRecipe.h"

#include "base/checks.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/Exception.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <system_error>
#include <utility>

namespace tio::ffmpeg {

namespace {

using detail::SourceRecipe;

/// A block of memory as a stream.
class MemoryStream : public ByteStream {
public:
    MemoryStream(std::shared_ptr<const uint8_t> bytes, size_t count)
        : block(std::move(bytes)), end(static_cast<int64_t>(count)) {}

    int64_t read(uint8_t* to, int64_t count) override {
        const int64_t taken = std::clamp<int64_t>(end - position, 0, count);
        if (taken > 0)
            std::memcpy(to, block.get() + position, static_cast<size_t>(taken));
        position += taken;
        return taken;
    }

    void seek(int64_t target) override { position = target; }
    int64_t size() override { return end; }

private:
    std::shared_ptr<const uint8_t> block;
    int64_t end;
    int64_t position = 0;
};

std::string requireText(const char* url) {
    if (url == nullptr)
        detail::failPlainly("A source has no URL");
    return url;
}

std::shared_ptr<const SourceRecipe> memoryRecipe(std::shared_ptr<const uint8_t> bytes, size_t count,
                                                 std::string name, OpenOptions options) {
    if (bytes == nullptr && count != 0)
        detail::failPlainly("There is no memory for the source \"" + name + "\"");
    return std::make_shared<SourceRecipe>(SourceRecipe{
        Source::Kind::Memory, std::move(name), std::move(options), std::move(bytes), count, {}});
}

// The code that the failure of a stream has beside its words.
int codeOf(const std::error_code& error) {
    const bool ofSystem =
        error.category() == std::generic_category() || error.category() == std::system_category();
    return ofSystem ? AVERROR(error.value()) : AVERROR_EXTERNAL;
}

// Called while what the stream threw is handled, so that it becomes the nested exception.
[[noreturn]] void throwReadingFailure(const Source& source, const std::string& words, int code) {
    const std::string text = "Reading \"" + source.name() + "\" failed: " + words;
    detail::logFailure(text);
    std::throw_with_nested(Exception(text, code));
}

} // namespace

ByteStream::~ByteStream() = default;

Source::Source(std::string url, OpenOptions openOptions)
    : recipe(std::make_shared<SourceRecipe>(
          SourceRecipe{Kind::Url, std::move(url), std::move(openOptions), {}, 0, {}})) {}

Source::Source(const char* url, OpenOptions openOptions)
    : Source(requireText(url), std::move(openOptions)) {}

Source::Source(std::shared_ptr<const SourceRecipe> made) noexcept : recipe(std::move(made)) {}

Source::Source(const Source& other) noexcept = default;
Source& Source::operator=(const Source& other) noexcept = default;
Source::~Source() = default;

Source Source::memory(std::vector<uint8_t> bytes, std::string name, OpenOptions options) {
    const auto kept = std::make_shared<const std::vector<uint8_t>>(std::move(bytes));
    return Source(
        memoryRecipe({kept, kept->data()}, kept->size(), std::move(name), std::move(options)));
}

Source Source::memory(std::shared_ptr<const uint8_t> bytes, size_t count, std::string name,
                      OpenOptions options) {
    return Source(memoryRecipe(std::move(bytes), count, std::move(name), std::move(options)));
}

Source Source::borrowed(const void* bytes, size_t count, std::string name, OpenOptions options) {
    const std::shared_ptr<const uint8_t> unowned(std::shared_ptr<void>(),
                                                 static_cast<const uint8_t*>(bytes));
    return Source(memoryRecipe(unowned, count, std::move(name), std::move(options)));
}

Source Source::streams(StreamFactory factory, std::string name, OpenOptions options) {
    if (!factory)
        detail::failPlainly("There is no factory of streams for the source \"" + name + "\"");
    return Source(std::make_shared<SourceRecipe>(SourceRecipe{
        Kind::Streams, std::move(name), std::move(options), {}, 0, std::move(factory)}));
}

Source::Kind Source::kind() const noexcept {
    return recipe->kind;
}

const std::string& Source::name() const noexcept {
    return recipe->name;
}

const OpenOptions& Source::options() const noexcept {
    return recipe->options;
}

std::unique_ptr<ByteStream> detail::openStream(const Source& source) {
    const SourceRecipe& recipe = SourceAccess::recipeOf(source);
    if (recipe.kind == Source::Kind::Memory)
        return std::make_unique<MemoryStream>(recipe.bytes, recipe.byteCount);
    try {
        std::unique_ptr<ByteStream> stream = recipe.factory();
        if (!stream)
            throw tio::Exception("its factory gave no stream");
        return stream;
    } catch (...) {
        throwStreamFailure(source, std::current_exception());
    }
}

void detail::throwStreamFailure(const Source& source, const std::exception_ptr& thrown) {
    try {
        std::rethrow_exception(thrown);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const Exception& failure) {
        throwReadingFailure(source, failure.what(), failure.code());
    } catch (const std::system_error& failure) {
        throwReadingFailure(source, failure.what(), codeOf(failure.code()));
    } catch (const std::exception& failure) {
        throwReadingFailure(source, failure.what(), AVERROR_EXTERNAL);
    } catch (...) {
        throwReadingFailure(source, "the stream threw something unknown", AVERROR_EXTERNAL);
    }
}

} // namespace tio::ffmpeg
