// A program from outside, in C++: writes a setting, reads it back, and is refused a kind of camera that has no table.
#include <libCameraAccess.h>
#include <libIniFile.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2 || write_profile_string("Record", "Duration", "1234", argv[1]) < 0) {
        return 1;
    }
    std::printf("%d\n", read_profile_int("Record", "Duration", -1, argv[1]));
    return CameraDeviceInit(CAMERA_DEV_HD_DOME, PROCESS_AVRECORD) == CAMERA_ACCESS_NO_TABLE ? 0 : 1;
}
