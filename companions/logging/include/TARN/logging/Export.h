#pragma once

/// Marks what `tarn_logging` shows to its users; everything else stays inside the library.
#define TARN_LOGGING_API __attribute__((visibility("default")))
