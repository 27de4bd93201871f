#pragma once

#include <TARN/videoio/FrameIndexOptions.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <pybind11/pybind11.h>
#include <stdexcept>
#include <sys/types.h>
#include <thread>
#include <type_traits>
#include <utility>

namespace tio::python {

namespace py = pybind11;

/// What C++ throws through the library when Python has raised: the exception itself waits in the
/// Call.
struct PythonRaised : std::runtime_error {
    PythonRaised() : std::runtime_error("an exception of Python") {}
};

/// A call was made in the middle of another one of the same object and thread: by a callback.
struct CalledWithinCall : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// An object that was closed is asked for something.
struct Closed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The call of this thread that is in the library just now. Code of the caller's that the library
/// calls (streams, progress) leaves its exceptions here, so that they come out as they were raised,
/// whatever the library made of them.
class Call {
public:
    Call() noexcept;
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    /// The innermost call of this thread; null in threads of FFmpeg's.
    static Call* current() noexcept;

    /// Keeps the exception that Python has raised just now, unless there is one already. Needs the
    /// GIL.
    void keep(py::error_already_set& raised);
    [[nodiscard]] bool hasKept() const noexcept { return kept.has_value(); }

    /// Runs what Python's signal handlers have to do, in its main thread. Takes the GIL.
    /// @returns false when one of them has raised
    bool handleSignals();

    /// Throws what was kept. Needs the GIL.
    void raiseKept();

private:
    Call* outer;
    std::optional<py::error_already_set> kept;
};

/// For the library's tokens: whether the call of this thread shall end.
[[nodiscard]] bool callShallEnd();

/// Runs code that calls Python, with the GIL; what it raises is kept, and PythonRaised thrown.
template <typename Function>
auto inPython(Function&& function) {
    const py::gil_scoped_acquire gil;
    try {
        return function();
    } catch (py::error_already_set& raised) {
        if (Call* call = Call::current())
            call->keep(raised);
        throw PythonRaised();
    }
}

/// Runs code of the library without the GIL.
template <typename Function>
auto inLibrary(Function&& function) {
    Call call;
    const auto withoutLock = [&] {
        const py::gil_scoped_release free;
        return function();
    };
    try {
        if constexpr (std::is_void_v<decltype(function())>) {
            withoutLock();
            call.raiseKept();
        } else {
            auto result = withoutLock();
            call.raiseKept();
            return result;
        }
    } catch (py::error_already_set&) {
        throw;
    } catch (...) {
        call.raiseKept();
        throw;
    }
}

/// Lets one call at a time use an object; the others wait, without the GIL and with an ear for
/// signals. A forked process starts with a lock of its own, since nobody is there who would open
/// the old one.
class Turns {
public:
    Turns();

    /// To be called with the GIL before every use.
    /// @returns whether another thread was in a call when this process was forked: then the object
    ///          is as that call left it
    bool noticeFork();

    /// Waits for its turn and ends it when it is destroyed. Made without the GIL.
    class Turn {
    public:
        explicit Turn(Turns& all);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        Turns& turns;
    };

private:
    std::unique_ptr<std::timed_mutex> mutex;
    std::atomic<std::thread::id> owner{};
    pid_t process;
};

/// A reference that may be let go of in any thread, with or without the GIL.
[[nodiscard]] std::shared_ptr<py::object> shareObject(py::object object);

/// The callback of making an index: a Python function of (step, done, total), or None. What it
/// raises ends the making, as signals do.
[[nodiscard]] ffmpeg::IndexProgressCallback progressOf(const py::object& function);

} // namespace tio::python
