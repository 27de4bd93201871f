#pragma once

#include "call.h"

#include <TARN/videoio/Source.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <pybind11/pybind11.h>
#include <type_traits>
#include <utility>

namespace tio::python {

/// A reader or writer of the library that threads of Python take turns with. It can be closed, and
/// is made again in a forked process when another thread was in the middle of a call.
template <typename Engine>
class Shared {
public:
    /// @param maker  called without the GIL, also later
    explicit Shared(std::function<std::unique_ptr<Engine>()> maker) : make(std::move(maker)) {
        inLibrary([&] { engine = make(); });
    }

    ~Shared() {
        noticeFork();
        const py::gil_scoped_release free;
        engine.reset();
    }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    [[nodiscard]] bool isClosed() const noexcept { return closed.load(); }

    /// @throws Closed
    void requireOpen() const {
        if (isClosed())
            throw Closed("closed");
    }

    /// Runs a function of the engine without the GIL, when its turn has come.
    template <typename Function>
    auto use(Function&& function) {
        requireOpen();
        noticeFork();
        return inLibrary([&] {
            const Turns::Turn turn(turns);
            requireOpen();
            if (!engine) // also where that has failed before
                engine = make();
            return function(*engine);
        });
    }

    /// Waits for the call that another thread is in.
    void close() {
        if (isClosed())
            return;
        noticeFork();
        inLibrary([&] {
            const Turns::Turn turn(turns);
            end();
        });
    }

    /// The same, with a last use of the engine, whatever comes of it.
    template <typename Function>
    void closeAfter(Function&& function) {
        use([&](Engine& open) {
            try {
                function(open);
            } catch (...) {
                end();
                throw;
            }
            end();
        });
    }

private:
    void end() {
        closed.store(true);
        engine.reset();
    }

    void noticeFork() {
        if (turns.noticeFork())
            static_cast<void>(engine.release()); // another thread of the parent was using it
    }

    std::function<std::unique_ptr<Engine>()> make;
    Turns turns;
    std::unique_ptr<Engine> engine;
    std::atomic<bool> closed{false};
};

/// A reader whose index is kept, so that it is there when the reader has to be made again.
/// @tparam counted  how many frames or samples there are: a method of the engine
template <typename Engine, typename Options, int64_t (Engine::*counted)() const noexcept>
class SharedReader {
public:
    SharedReader(ffmpeg::Source source, Options given)
        : origin(std::move(source)), options(std::move(given)), shared([this] {
              auto made = std::make_unique<Engine>(origin, options);
              options.index = made->index();
              known.store(((*made).*counted)());
              return made;
          }) {}

    void close() { shared.close(); }
    [[nodiscard]] bool isClosed() const { return shared.isClosed(); }

    // Waits for nobody: it is asked all the time.
    [[nodiscard]] int64_t count() const {
        shared.requireOpen();
        return known.load();
    }

    /// Runs a function of the reader without the GIL.
    template <typename Function>
    auto use(Function&& function) {
        return shared.use([&](Engine& open) {
            const Counting counting{*this, open};
            return function(open);
        });
    }

private:
    // Damage that turns up changes how many there are.
    struct Counting {
        SharedReader& reader;
        const Engine& engine;
        ~Counting() { reader.known.store((engine.*counted)()); }
    };

    ffmpeg::Source origin;
    Options options;
    std::atomic<int64_t> known{0};
    Shared<Engine> shared; // is made of the rest
};

template <typename Reader>
void bindShared(py::class_<Reader>& bound) {
    bound.def("close", &Reader::close)
        .def("is_closed", &Reader::isClosed)
        .def("count", &Reader::count);
}

/// @returns what asks a method of the library's, for Python to call
template <typename Reader, typename Engine, typename Answer, typename... Arguments>
auto asking(Answer (Engine::*method)(Arguments...) const) {
    return [method](Reader& reader, const std::decay_t<Arguments>&... arguments) {
        return reader.use([&](Engine& open) { return (open.*method)(arguments...); });
    };
}

} // namespace tio::python
