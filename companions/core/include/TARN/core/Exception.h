#pragma once

#include <TARN/core/Export.h>

#include <stdexcept>

namespace tio {

/// Base of every exception that the libraries of this family throw.
///
/// It carries its message and nothing else, as `std::runtime_error` does: `what()` returns the text
/// that it was made with. A handler for `tio::Exception` also catches what other libraries of the
/// family derive from it, across library borders.
class TARN_CORE_API Exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;

    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    ~Exception() override;
};

} // namespace tio
