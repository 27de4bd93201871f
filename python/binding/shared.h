#pragma once

#include "call.h"

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

namespace tio::python {

/// A reader of the library that threads of Python take turns with. It can be closed, and is made
/// again in a forked process when another thread was in the middle of a call.
template <typename Engine>
class Shared {
public:
    using Maker = std::function<std::unique_ptr<Engine>()>;
    using Note = std::function<void(const Engine&)>;

    /// Makes the first one.
    /// @param maker  called without the GIL, also later
    /// @param note   called after every call, without the GIL, to remember what has changed
    Shared(Maker maker, Note note) : make(std::move(maker)), remember(std::move(note)) {
        inLibrary([&] { renew(); });
    }

    ~Shared() {
        if (turns.noticeFork())
            static_cast<void>(engine.release()); // another thread of the parent was using it
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
        if (turns.noticeFork())
            static_cast<void>(engine.release());
        return inLibrary([&] {
            const Turns::Turn turn(turns);
            requireOpen();
            if (!engine) // also where that has failed before
                renew();
            const Noting noting(*this);
            return function(*engine);
        });
    }

    /// Waits for the call that another thread is in.
    void close() {
        if (isClosed())
            return;
        if (turns.noticeFork())
            static_cast<void>(engine.release());
        inLibrary([&] {
            const Turns::Turn turn(turns);
            closed.store(true);
            engine.reset();
        });
    }

private:
    class Noting {
    public:
        explicit Noting(Shared& all) : owner(all) {}
        ~Noting() { owner.remember(*owner.engine); }
        Noting(const Noting&) = delete;
        Noting& operator=(const Noting&) = delete;

    private:
        Shared& owner;
    };

    void renew() {
        engine = make();
        remember(*engine);
    }

    Maker make;
    Note remember;
    Turns turns;
    std::unique_ptr<Engine> engine;
    std::atomic<bool> closed{false};
};

} // namespace tio::python
