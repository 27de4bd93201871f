#include "binding.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/ClipCopierOptions.h>
#include <TARN/videoio/ClipRefusal.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FrameIndexOptions.h>
#include <TARN/videoio/IndexMismatch.h>

#include <new>

namespace tio::python {

namespace {

PyObject* failureType = nullptr; // of the module, which is never unloaded

// The kinds are those that _errors.py knows.
void raise(const char* kind, const std::string& text, int code = 0,
           const py::object& detail = py::none()) {
    const py::tuple arguments = py::make_tuple(kind, textOf(text), code, detail);
    PyErr_SetObject(failureType, arguments.ptr());
}

const char* kindOf(const ffmpeg::Exception& failure) {
    if (failure.isTimeout())
        return "timeout";
    return failure.isCancelled() ? "cancelled" : "ffmpeg";
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): as pybind11 calls it
void translate(std::exception_ptr thrown) {
    try {
        if (thrown)
            std::rethrow_exception(thrown);
    } catch (const ffmpeg::TimeRefusal& refusal) {
        raise("time", refusal.what(), 0, py::cast(refusal.nearest()));
    } catch (const ffmpeg::ClipRefusal& refusal) {
        raise("refusal", refusal.what());
    } catch (const ffmpeg::IndexingCancelled& cancelled) {
        raise("cancelled", cancelled.what());
    } catch (const ffmpeg::CopyingCancelled& cancelled) {
        raise("cancelled", cancelled.what());
    } catch (const ffmpeg::IndexMismatch& mismatch) {
        raise("mismatch", mismatch.what());
    } catch (const ffmpeg::Exception& failure) {
        raise(kindOf(failure), failure.what(), failure.code());
    } catch (const tio::Exception& failure) {
        raise("plain", failure.what());
    } catch (const Closed& closed) {
        raise("closed", closed.what());
    } catch (const CalledWithinCall& nested) {
        raise("nested", nested.what());
    } catch (const py::builtin_exception&) {
        throw;
    } catch (const py::error_already_set&) {
        throw;
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
    } catch (const std::exception& failure) {
        raise("plain", failure.what());
    }
}

} // namespace

void bindFailures(py::module_& module) {
    failureType = PyErr_NewException("tarn_videoio._native.Failure", PyExc_Exception, nullptr);
    if (failureType == nullptr)
        throw py::error_already_set();
    module.add_object("Failure", py::reinterpret_borrow<py::object>(failureType));
    py::register_exception_translator(&translate);
}

} // namespace tio::python
