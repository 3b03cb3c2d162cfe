// What libFuzzer calls with each input.
#include "Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input in(data, size);
    fuzz::Feed(in);
    return 0;
}
