#include <TARN/core/Exception.h>

namespace tio {

// Defined here, so that the class has one type information that all libraries share.
Exception::~Exception() = default;

} // namespace tio
