#include "CameraBinding.h"

int CameraGetRegularRecordProperty(REGULAR_RECORD_PROPERTY* pRegularRecordPropertyIn,
                                   REGULAR_RECORD_PROPERTY* pRegularRecordPropertyOut) {
    LOG_ENTRY();
    if (pRegularRecordPropertyIn == nullptr || pRegularRecordPropertyOut == nullptr) {
        return CAMERA_ACCESS_FAIL;
    }
    return CallCommand(CAMERA_COMMAND_GETREGULARRECORDPROPERTY, pRegularRecordPropertyIn, pRegularRecordPropertyOut);
}

int CameraSetVideoForceIFrame(int index, int value) {
    LOG_ENTRY();
    Camera_VideoParam param{};
    param.index = index;
    param.value = value;
    return CallCommand(CAMERA_COMMAND_SETVIDEOFORCEIFRAME, &param, nullptr);
}

// Queries of one record, which is the output.
#define SINGLE_RECORD_QUERY(function, command, type)                                           \
    int function(type* record) {                                                               \
        LOG_ENTRY();                                                                           \
        return record == nullptr ? CAMERA_ACCESS_FAIL : CallCommand(command, nullptr, record); \
    }

SINGLE_RECORD_QUERY(CameraGetVideoConfig, CAMERA_COMMAND_GETVIDEOCONFIG, Camera_VideoConfig)
SINGLE_RECORD_QUERY(CameraGetAudioConfig, CAMERA_COMMAND_GETAUDIOCONFIG, Camera_AudioConfig)
SINGLE_RECORD_QUERY(CameraGetAudioProperty, CAMERA_COMMAND_GETAUDIOPROPERTY, Camera_AudioProperty)
SINGLE_RECORD_QUERY(CameraGetDisplayProperty, CAMERA_COMMAND_GETDISPLAYPROPERTY, Camera_DISPLAYPROPERTY)

// The rest of the family.
#define CAMERA_ENTRY(function, command, number)        \
    int function(void* inData, void* outData) {        \
        LOG_ENTRY();                                   \
        if (inData == nullptr || outData == nullptr) { \
            return CAMERA_ACCESS_FAIL;                 \
        }                                              \
        return CallCommand(command, inData, outData);  \
    }
#define CAMERA_QUERY(function, command, number, implementation)
CAMERA_ENTRIES(CAMERA_ENTRY, CAMERA_QUERY)
