// The check behind every entry, apart from the binding, so that it holds for any table.
#pragma once

#include <span>

#include "libCameraAccess.h"
#include "libLog.h"

// The first line of every entry.  This family has a comma where the house pattern has a blank.
#define LOG_ENTRY() LogTrace("%s,%d\n", __func__, __LINE__)

// Whether `table` serves `command`: 0, CAMERA_ACCESS_MISMATCH or CAMERA_ACCESS_UNSUPPORTED.  A command
// past the table's end, or below 0, is unsupported.
int CheckSlot(std::span<const CameraCommonAccess> table, int command);

// Calls the implementation of `command` in the bound table once the check is passed; the check's
// result otherwise.
int CallCommand(CameraCommand command, void* inData, void* outData);
