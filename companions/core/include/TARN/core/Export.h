#pragma once

/// Marks what `tarn_core` shows to its users; everything else stays inside the library.
#define TARN_CORE_API __attribute__((visibility("default")))
