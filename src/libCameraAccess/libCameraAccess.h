/* The one door through which a process reads and changes camera settings.
 *
 * A process binds the interface once to a kind of camera; every entry then checks the binding and
 * calls the implementation that the camera's table holds for the entry's command number.
 * Owns the binding.  Never keeps a copy of the configuration and never writes it: queries read it in
 * place, changes are requests to the system server.
 * Entries may be called from any thread once CameraDeviceInit has returned; records are the caller's.
 */
#ifndef LIB_CAMERA_ACCESS_H
#define LIB_CAMERA_ACCESS_H

#include "CameraEntries.h"
#include "CameraRecords.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Results besides 0 ---- */
enum CameraAccessResult {
    CAMERA_ACCESS_FAIL = -1,        /* a null argument, or the implementation's failure */
    CAMERA_ACCESS_BOUND = -2,       /* already bound                                    */
    CAMERA_ACCESS_UNBOUND = -3,     /* not bound yet                                    */
    CAMERA_ACCESS_NO_TABLE = -4,    /* no table for this kind of camera                 */
    CAMERA_ACCESS_UNSUPPORTED = -5, /* the camera has no such command                   */
    CAMERA_ACCESS_MISMATCH = -7     /* the table's slot belongs to another command      */
};

/* ---- Binding ---- */

typedef enum Camera_device {
    CAMERA_DEV_COMMON = 1,
    CAMERA_DEV_SD_DOME = 2,
    CAMERA_DEV_HD_DOME = 3, /* has no table */
    CAMERA_DEV_END = 4
} Camera_device;

typedef enum tagEnumProcess {
    PROCESS_START = 0,
    PROCESS_BOA = 1,
    PROCESS_DEVICESEARCH = 2,
    PROCESS_FREEIP = 3,
    PROCESS_HIKSERVER = 4,
    PROCESS_XIONGMAI = 5,
    PROCESS_AVRECORD = 6,
    PROCESS_END = 9
} ProcessDef;

typedef enum tagEnumCameraCommand {
    CAMERA_COMMAND_START = 0,
    CAMERA_COMMAND_INIT = 1,
    CAMERA_COMMAND_END = 207,
#define CAMERA_COMMAND_OF_ENTRY(function, command, number) command = number,
#define CAMERA_COMMAND_OF_QUERY(function, command, number, implementation) command = number,
    CAMERA_ENTRIES(CAMERA_COMMAND_OF_ENTRY, CAMERA_COMMAND_OF_QUERY)
#undef CAMERA_COMMAND_OF_ENTRY
#undef CAMERA_COMMAND_OF_QUERY
} CameraCommand;

/* Binds the interface to a kind of camera and starts it for `Process`: switches the log on, registers
 * with the system server and attaches the configuration.  Returns 0; -2 when already bound, -1 for a
 * kind out of range, -4 for one without table; otherwise the check's or the start's failure, and the
 * interface stays bound. */
int CameraDeviceInit(Camera_device CameraDevice, ProcessDef Process);

/* Unbinds; configuration, queue and log stay as they are.  Returns 0. */
int CameraDeviceCleanup(void);

/* Whether `cmd` may be called now: 0, -3, -4, -7 or -5. */
int CheckParamValid(CameraCommand cmd);

/* ---- Access tables ---- */

typedef int (*CameraCommonFunction)(void* inData, void* outData);

typedef struct tagStructCameraCommonAccess {
    CameraCommand Camera_command;         /* equal to the slot's index */
    CameraCommonFunction Camera_function; /* null: not supported       */
} CameraCommonAccess;

#define CAMERA_COMMON_SLOTS 208
#define CAMERA_SD_SLOTS 72

/* The tables, CAMERA_COMMON_SLOTS and CAMERA_SD_SLOTS long; constant, never freed. */
const CameraCommonAccess* Get_Common_CameraCommonAccess(void);
const CameraCommonAccess* Get_SD_CameraCommonAccess(void);

/* ---- Queries and requests ---- */

/* The weekly schedule.  The input names the channel; both may be the same record. */
int CameraGetRegularRecordProperty(REGULAR_RECORD_PROPERTY* pRegularRecordPropertyIn,
                                   REGULAR_RECORD_PROPERTY* pRegularRecordPropertyOut);

/* Fills three records, one per encoder stream: `pVideoConfig` has room for three. */
int CameraGetVideoConfig(Camera_VideoConfig* pVideoConfig);

int CameraGetAudioConfig(Camera_AudioConfig* pAudioConfig);

/* Fills all but ucCn. */
int CameraGetAudioProperty(Camera_AudioProperty* pAudioProperty);

/* Fills all but ucCH, ucOSDVisiable and the reserved bytes. */
int CameraGetDisplayProperty(Camera_DISPLAYPROPERTY* pDisplayProperty);

/* Asks the system server for a key frame of stream `index`; `value` is logged only.  Waits for the
 * server's answer and ignores it: 0, or the check's result. */
int CameraSetVideoForceIFrame(int index, int value);

/* The other entries: -1 when a pointer is null, the check's result otherwise. */
#define CAMERA_ENTRY_PROTOTYPE(function, command, number) int function(void* inData, void* outData);
#define CAMERA_QUERY_PROTOTYPE(function, command, number, implementation)
CAMERA_ENTRIES(CAMERA_ENTRY_PROTOTYPE, CAMERA_QUERY_PROTOTYPE)
#undef CAMERA_ENTRY_PROTOTYPE
#undef CAMERA_QUERY_PROTOTYPE

/* ---- The common camera ---- */

/* Starts the configuration layer for the process in `pProcess` (a ProcessDef); the second argument is
 * not used.  Returns 0, or -1 when the system server's channel or the configuration cannot be had. */
int Common_Init(int* pProcess, void* outData);

/* The implementations behind the queries; `inData` is read by the schedule query (not null) and by the
 * forced key frame (a Camera_VideoParam) only. */
int Common_GetRegularRecordProperty(void* inData, void* outData);
int Common_GetVideoConfig(void* inData, void* outData);
int Common_GetAudioConfig(void* inData, void* outData);
int Common_GetAudioProperty(void* inData, void* outData);
int Common_GetDisplayProperty(void* inData, void* outData);
int Common_Set_Video_Force_IFrame(void* inData, void* outData);

#define CAMERA_SEMAPHORE_KEY 0xC54BD5

/* The semaphore set of `key`, created with one semaphore of value 1 (mode 0666) when missing.
 * Returns its id, or -1. */
int Semaphore_Init(int key);

/* Highest frame rate, in frames a second, of a picture of `width` x `height` pixels.  `encodingType`
 * is a codec, -1 for any; the limits are the same for all. */
int KQ_COMMON_GetMaxFrameRateByResolution(int width, int height, int encodingType);

#ifdef __cplusplus
}
#endif
#endif
