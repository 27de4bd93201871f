// What every libFuzzer program needs beside its target.

#include "start.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    tio::fuzz::start();
    return 0;
}
