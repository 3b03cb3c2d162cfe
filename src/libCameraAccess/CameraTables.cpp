#include <array>
#include <cstddef>

#include "libCameraAccess.h"

namespace {

int InitOfCommon(void* inData, void* outData) {
    return Common_Init(static_cast<int*>(inData), outData);
}

// A table of `slots` slots in which each knows its command and none has a function.
template <size_t slots>
constexpr std::array<CameraCommonAccess, slots> NumberedSlots() {
    std::array<CameraCommonAccess, slots> table{};
    for (size_t slot = 0; slot < slots; ++slot) {
        table[slot].Camera_command = static_cast<CameraCommand>(slot);
    }
    return table;
}

constexpr auto Common_Access = [] {
    auto table = NumberedSlots<CAMERA_COMMON_SLOTS>();
    table[CAMERA_COMMAND_INIT].Camera_function = InitOfCommon;
#define UNSERVED(function, command, number)
#define SERVED(function, command, number, implementation) table[number].Camera_function = implementation;
    CAMERA_ENTRIES(UNSERVED, SERVED)
#undef UNSERVED
#undef SERVED
    return table;
}();

constexpr auto SD_Access = NumberedSlots<CAMERA_SD_SLOTS>();  // the speed dome has no implementation here

}  // namespace

const CameraCommonAccess* Get_Common_CameraCommonAccess(void) {
    return Common_Access.data();
}

const CameraCommonAccess* Get_SD_CameraCommonAccess(void) {
    return SD_Access.data();
}
