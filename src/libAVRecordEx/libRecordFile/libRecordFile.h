/* The record store on the card: its records, its files, and the program stream inside them.
 *
 * For the writer, the record loop, the alarm thread, the formatter and the card tool.  Owns the format
 * and nothing else: no descriptor, no buffer, no in-memory head lives here; docs/card-format.md draws it.
 * Never allocates, never locks, never retries, never decides when to record.
 * Threads: every function may be called from any thread; who shares a record orders its users.  File
 * accesses are positioned, so users of one descriptor do not disturb each other.
 * Invariants: a number or length that came from a card is checked before it places or sizes an access;
 * no function reads or writes outside the stretches named here.
 *
 * Results, unless stated otherwise: 0 for success; -1 for a null pointer, a negative descriptor or a
 * transfer that failed or came short.  Times are seconds since 1970-01-01 UTC.
 */
#ifndef LIB_RECORD_FILE_H
#define LIB_RECORD_FILE_H

#include "AVFrame.h"
#include "RecordLayout.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- The store ---------------------------------------------------------------------------------- */

/* clang-format off */
#define RECORD_STORE_DIRECTORY "/var/etc/sdcard/" /* the mounted card; every name below lies in it   */
#define RECORD_INDEX_NAME "index000.bin"
#define RECORD_EVENT_NAME "event000.bin"
#define RECORD_FILE_NAME "hi%06d.mp4"             /* record file n, n from 0                         */
#define RECORD_PICTURE_NAME "hi%06d.pic"          /* picture file n, n from 0                        */

#define RECORD_FILE_SIZE 0x10000000u              /* 256 MiB, every record file                      */
#define RECORD_FILE_SIZE_SHIFT 28
#define RECORD_STREAM_LIMIT 0x0F900000u           /* a file with so much stream data counts as full  */
#define RECORD_KEY_FRAME_BASE 0x0FC00000u         /* offset of key-frame record 0 in a record file   */

#define RECORD_FILE_HEAD_BASE 1024u               /* index file: head of record file 0               */
#define RECORD_FILE_MAX 2709u                     /* heads of record files that fit into the index   */
#define RECORD_SECTION_BASE 131072u               /* index file: section block of record file 0      */
#define RECORD_SECTION_BLOCK 16384u               /* bytes of a section block                        */
#define RECORD_SECTION_MAX 251u                   /* sections of a file are numbered 1 to 251        */

#define RECORD_SYSTEM_FLAG 0x46484953u            /* "SIHF"                                          */
#define RECORD_FILE_FLAG 0x46484652u              /* "RFHF"                                          */
#define RECORD_SECTION_FLAG 0x46484952u           /* "RIHF"                                          */
#define RECORD_KEY_FRAME_FLAG 0x4648464Bu         /* "KFHF"                                          */
#define RECORD_SYSTEM_CHECK_WORD 0x55AABB55u

#define RECORD_TYPE_SCHEDULE 1                    /* recorded by the weekly schedule                 */
#define RECORD_KEY_FRAME_REAL 1                   /* m_u8KeyFrameType                                */
#define RECORD_KEY_FRAME_VIRTUAL 2                /* random-access point of smart encoding           */

typedef struct RecordSystemInfoHead_S {  /* 236 bytes at 0 of index000.bin                           */
    uint32_t m_u32SystemInfoHeadFlag;    /*   0  RECORD_SYSTEM_FLAG                                  */
    uint32_t m_u32SDCardFormat;          /*   4  1: formatted for recording                          */
    uint32_t m_u32SDCardSpaceSize;       /*   8  MiB, size of the card                               */
    uint32_t m_u32RecordSpaceSize;       /*  12  bytes, file count << 28 in 32 bits (wraps)          */
    uint32_t m_u32PictureSpaceSize;      /*  16  0                                                   */
    uint32_t m_u32RecordFileSum;         /*  20  record files in the ring                            */
    uint32_t m_u32RecordUsedFileSum;     /*  24  of them filled at least once                        */
    uint32_t m_u32RecordFileNo;          /*  28  number of the file being written, from 0            */
    uint32_t m_u32SystemInfoCrc;         /*  32  RECORD_SYSTEM_CHECK_WORD, never tested              */
    uint32_t m_u32RecordStartTime;       /*  36  0, not maintained                                   */
    uint32_t m_u32RecordEndTime;         /*  40  0, not maintained                                   */
    uint8_t  m_u8Res[192];               /*  44  zero                                                */
} RecordSystemInfoHead_S;

typedef struct RecordFileInfoHead_S {    /* 48 bytes at 1024 + 48 n of index000.bin                  */
    uint32_t m_u32FileInfoHeadFlag;      /*  0  RECORD_FILE_FLAG, or the head is all zero: empty     */
    uint32_t m_u32FileInfoHeadNo;        /*  4  number of the record file                            */
    uint32_t m_u32RecordStartTime;       /*  8  earliest start in the file                           */
    uint32_t m_u32RecordEndTime;         /* 12  latest frame in the file                             */
    uint32_t m_u32RecordFileSumLenth;    /* 16  bytes of stream data, the next write position        */
    uint32_t m_u32RecordFileSumType;     /* 20  record types in the file, ORed                       */
    uint32_t m_u32RecordSectionSum;      /* 24  sections, 1 to 251                                   */
    uint32_t m_u32RecordKeyFrameSum;     /* 28  key-frame records                                    */
    uint8_t  m_u8Res[16];                /* 32  zero                                                 */
} RecordFileInfoHead_S;

typedef struct RecordInfoHead_S {        /* 64 bytes at 131072 + 16384 n + 64 u of index000.bin      */
    uint32_t m_u32RecordInfoHeadFlag;    /*  0  RECORD_SECTION_FLAG                                  */
    uint32_t m_u32RecordStartTime;       /*  4  start of the section                                 */
    uint32_t m_u32RecordEndTime;         /*  8  last frame written; 0 at creation                    */
    uint16_t m_u16RecordFileNo;          /* 12  record file number n                                 */
    uint16_t m_u16RecordUseNo;           /* 14  section number u, 1 to 251                           */
    uint32_t m_u32RecordStartPos;        /* 16  offset of the section's first byte in the file       */
    uint32_t m_u32RecordSize;            /* 20  bytes of stream data                                 */
    uint32_t m_u32FrameSum;              /* 24  video frames                                         */
    uint32_t m_u32KeyFrameSum;           /* 28  key-frame records                                    */
    uint32_t m_u32StartKeyFramePos;      /* 32  first key-frame record, from RECORD_KEY_FRAME_BASE   */
    uint16_t m_u16Width;                 /* 36  pixels; 0 until the first key frame                  */
    uint16_t m_u16Height;                /* 38  pixels                                               */
    uint8_t  m_u8Frame;                  /* 40  frames a second                                      */
    uint8_t  m_u8RecordType;             /* 41  RECORD_TYPE_SCHEDULE                                 */
    uint8_t  m_u8VideoType;              /* 42  AVCodeType, low byte                                 */
    uint8_t  m_u8AudioType;              /* 43  AVCodeType, low byte                                 */
    uint8_t  m_u8SmartEnable;            /* 44  1: encoded with smart encoding on                    */
    uint8_t  m_u8Res[19];                /* 45  zero                                                 */
} RecordInfoHead_S;

typedef struct KeyFrameInfoHead_S {      /* 20 bytes at 0x0FC00000 + 20 k of a record file           */
    uint32_t m_u32KeyFrameHeadFlag;      /*  0  RECORD_KEY_FRAME_FLAG                                */
    uint32_t m_u32KeyFrameTime;          /*  4  time of the frame                                    */
    uint32_t m_u32KeyFrameLenth;         /*  8  bytes in the stream, program stream headers included */
    uint32_t m_u32KeyFilePos;            /* 12  first byte, counted from the start of its section    */
    uint8_t  m_u8KeyFrameType;           /* 16  RECORD_KEY_FRAME_REAL or _VIRTUAL                    */
    uint8_t  m_u8Res[3];                 /* 17  zero                                                 */
} KeyFrameInfoHead_S;
/* clang-format on */

RECORD_SIZE(RecordSystemInfoHead_S, 236);
RECORD_MEMBER(RecordSystemInfoHead_S, m_u32RecordFileNo, 28);
RECORD_MEMBER(RecordSystemInfoHead_S, m_u8Res, 44);
RECORD_SIZE(RecordFileInfoHead_S, 48);
RECORD_MEMBER(RecordFileInfoHead_S, m_u32RecordKeyFrameSum, 28);
RECORD_SIZE(RecordInfoHead_S, 64);
RECORD_MEMBER(RecordInfoHead_S, m_u32RecordStartPos, 16);
RECORD_MEMBER(RecordInfoHead_S, m_u16Width, 36);
RECORD_MEMBER(RecordInfoHead_S, m_u8SmartEnable, 44);
RECORD_SIZE(KeyFrameInfoHead_S, 20);
RECORD_MEMBER(KeyFrameInfoHead_S, m_u8KeyFrameType, 16);

/* Video parameters on their way into a section head; in memory only. */
typedef struct RecordVedioInfo_S {
    uint16_t m_u16Width;   /* pixels                */
    uint16_t m_u16Height;  /* pixels                */
    uint8_t m_u8Frame;     /* frames a second       */
    uint8_t m_u8VideoType; /* AVCodeType, low byte */
    uint8_t m_u8AudioType; /* AVCodeType, low byte */
    uint8_t m_u8Res[5];
} RecordVedioInfo_S;

/* What the formatter laid out; in memory only.  The members named "byte" hold MiB. */
typedef struct ConfigStoreInfo_S {
    uint64_t total_size_byte;   /* MiB, the card         */
    uint64_t vedio_size_byte;   /* MiB, record space     */
    uint32_t vedio_num;         /* record files          */
    uint64_t picture_size_byte; /* MiB, picture space    */
    uint32_t picture_num;       /* picture files         */
} ConfigStoreInfo_S;

/* ---- Basic file access (AVFile) ----------------------------------------------------------------- */

enum { AVFILE_READ = 1, AVFILE_WRITE = 2, AVFILE_READ_WRITE = 3 };
enum { SEEKMODE_BEGIN = 0, SEEKMODE_CURRENT = 1, SEEKMODE_END = 2 };

/* Opens `path`: mode 0 and AVFILE_READ read only; AVFILE_WRITE and AVFILE_READ_WRITE create the file
 * (0666) when missing; any other mode is refused.  The descriptor is closed on exec and the caller's
 * to close.  Returns it, or -1. */
int AVFileOpen(const char* path, int mode);
int AVFileClose(int fd);

/* Moves the position; returns the new one, or -1: another `whence`, or a position that an int cannot
 * hold (EOVERFLOW; the position is then where it was). */
int AVFileSeek(int fd, int offset, int whence);

/* Transfer exactly `length` bytes at the position.  Return `length`, or -1; never retried. */
int AVFileWrtie(int fd, const void* buffer, int length);
int AVFileRead(int fd, void* buffer, int length);

/* ---- Record files: stream data and key-frame area ----------------------------------------------- */

int AV_RecordStreamFileOpen(const char* path, int mode);
int AV_RecordStreamFileClose(int fd);

/* Writes at `offset` bytes from the start.  Returns `length`, or -1. */
int AV_RecordStreamInfoWrite(int fd, uint32_t offset, const void* buffer, int length);

/* Reads exactly `length` bytes at `offset`.  Returns `offset`, not the byte count (0 is a success), or
 * -1; an offset above INT32_MAX, which the result could not hold, is a failed seek. */
int AV_RecordStreamInfoRead(int fd, uint32_t offset, void* buffer, int length);

/* The same at RECORD_KEY_FRAME_BASE + `offset`.  Return `length`, or -1. */
int AV_RecordKeyFrameWrite(int fd, uint32_t offset, const void* buffer, int length);
int AV_RecordKeyFrameRead(int fd, uint32_t offset, void* buffer, int length);

int AV_RecordKeyFrameInfoUpdate(KeyFrameInfoHead_S* record, uint32_t time, uint32_t length, uint32_t position,
                                uint8_t type);

/* Slots of 512 KiB: transfer `length` bytes at `index` * 524288 + `offset`.  Return `length`, or -1; a
 * negative index is refused, and a write whose offset + length exceeds 0x20000000. */
int AV_RecordKeyFrameDataWrite(int fd, int index, uint32_t offset, const void* buffer, int length);
int AV_RecordKeyFrameDataRead(int fd, int index, uint32_t offset, void* buffer, int length);

/* ---- Index file --------------------------------------------------------------------------------- */

int AV_RecordOpen(const char* path, int mode); /* as AVFileOpen */
int AV_RecordClose(int fd);

/* What reading a head came to, where "no head" and "not readable" must not be confused: what a card holds is
 * written over only when it was read. */
typedef enum AVHeadLoad {
    AV_HEAD_LOADED = 0,
    AV_HEAD_ABSENT = 1, /* the file ends before the head's last byte                               */
    AV_HEAD_FAILED = -1 /* errno says why; the head may be there                                   */
} AVHeadLoad;
AVHeadLoad AVRecordSystemHeadLoad(int fd, RecordSystemInfoHead_S* system);
AVHeadLoad AVRecordFileHeadLoad(int fd, uint32_t file_no, RecordFileInfoHead_S* file);

/* System head.  Write and Read return 236, or -1. */
int AV_SystemInfoHeadWrite(int fd, const RecordSystemInfoHead_S* system);
int AV_SystemInfoHeadRead(int fd, RecordSystemInfoHead_S* system);
int AV_SystemInfoHeadCheck(const RecordSystemInfoHead_S* system); /* 0: flag and format word hold */
int AV_SystemInfoInitCheck(const char* path);                     /* the same, of an index file   */
int AV_SystemInfoHeadParamSave(const char* path, const RecordSystemInfoHead_S* system); /* creates the file */
int AV_SystemInfoHeadParamInit(RecordSystemInfoHead_S* system, uint32_t card_mib, uint32_t file_count);

/* When `file` is full: count it as used (never beyond the file count); go on to the next file number,
 * after the last to 0.  Otherwise nothing. */
int AV_SystemInfoHeadUsedFileSumFresh(RecordSystemInfoHead_S* system, const RecordFileInfoHead_S* file);
int AV_SystemInfoHeadFileNoFresh(RecordSystemInfoHead_S* system, const RecordFileInfoHead_S* file);

/* File heads.  The first two address the head of the system head's current file.  A file number of
 * RECORD_FILE_MAX or above is refused: its head would lie on the section heads. */
int AV_RecordFileInfoHeadWrite(int fd, const RecordSystemInfoHead_S* system, const RecordFileInfoHead_S* file);
int AV_RecordFileInfoHeadRead(int fd, const RecordSystemInfoHead_S* system, RecordFileInfoHead_S* file);
int AV_RecordFileInfoHeadAccecsFileNoWrite(int fd, uint32_t file_no, const RecordFileInfoHead_S* file);
int AV_RecordFileInfoHeadAccecsFileNoRead(int fd, uint32_t file_no, RecordFileInfoHead_S* file);
int AV_RecordFileInfoHeadAdd(const RecordSystemInfoHead_S* system, RecordFileInfoHead_S* file, uint32_t start_time,
                             uint32_t type_bits);
int AV_RecordFileInfoHeadStartTimeFresh(RecordFileInfoHead_S* file, uint32_t time);
int AV_RecordFileInfoHeadEndTimeFresh(RecordFileInfoHead_S* file, uint32_t time);
/* Adds `bytes` unless the length has already passed RECORD_STREAM_LIMIT. */
int AV_RecordFileInfoHeadFileLenthFresh(RecordFileInfoHead_S* file, uint32_t bytes);
int AV_RecordFileInfoHeadFileFileFresh(RecordFileInfoHead_S* file, uint32_t type_bits); /* ORs the types */
int AV_RecordFileInfoHeadSectionSumFresh(RecordFileInfoHead_S* file);                   /* -1: already 251 sections */
int AV_RecodrFileInfoHeadKeyFrameFresh(RecordFileInfoHead_S* file, int is_key);

/* Section heads. */
int AV_RecordSectionInfoHeadAdd(const RecordFileInfoHead_S* file, RecordInfoHead_S* section, uint32_t start_time,
                                uint8_t record_type, uint8_t smart_enable); /* m_u8Res stays as it was */
int AV_RecordSectionInfoHeadVedioParamFresh(RecordInfoHead_S* section, const RecordVedioInfo_S* video);
/* Adds `bytes` unless the section's end has already passed RECORD_STREAM_LIMIT. */
int AV_RecordSectionInfoHeadFileSizeFresh(RecordInfoHead_S* section, uint32_t bytes);
int AV_RecordSectionInfoHeadStartTimeFresh(RecordInfoHead_S* section, uint32_t time);
int AV_RecordSectionInfoHeadEndTimeFresh(RecordInfoHead_S* section, uint32_t time);
/* Counts a frame: a key frame when `is_key` is not 0, a video frame when `kind` is AV_FRAME_TYPE_VIDEO. */
int AV_RecordSecitonInfoHeadKeyFrameFresh(RecordInfoHead_S* section, int is_key, int kind);
/* Writes the head into its slot; a file number above the index or a section number outside 1 to 251,
 * whose slot would belong to somebody else, is refused. */
int AV_RecordSectionInfoHeadWrite(int fd, const RecordFileInfoHead_S* file, const RecordInfoHead_S* section);
/* Reads the file's sections 1 onward; `sections` has room for min(m_u32RecordSectionSum, 251). */
int AV_RecordSectionInfoHeadRead(int fd, const RecordFileInfoHead_S* file, RecordInfoHead_S* sections);

/* Whole store. */
/* Writes a fresh system head; -1 also for more than RECORD_FILE_MAX record files, nothing written. */
int AV_RecordFileConfigSet(const char* path, const ConfigStoreInfo_S* store);
/* Zeroes the file heads and the system head and reports the file count; section heads stay. */
int AV_RecordFileConfigClear(const char* path, uint32_t* file_count);
/* Reports m_u32RecordSpaceSize (bytes, wraps) and the free space in MiB, when the head holds. */
int AV_RecordConfigInfoGet(const char* path, uint32_t* record_space, uint32_t* free_mib);

/* ---- Alarm event file ---------------------------------------------------------------------------
 *
 * A head per record file and, after the heads, a block of records per record file.  The file is stored
 * with 64 MiB, enough for record files 0 to 503; writing for a later one makes it grow. */

/* clang-format off */
#define ALARM_EVENT_FLAG 0x464D4541u              /* "AEMF"                                          */
#define ALARM_RECORD_FLAG 0x46454441u             /* "ADEF"                                          */
#define ALARM_EVENT_FILE_MAX 4096u                /* heads that fit in front of the first block      */
#define ALARM_EVENT_BLOCK 131072u                 /* bytes of a record file's block                  */
#define ALARM_EVENT_MAX 1024u                     /* records counted per record file                 */
#define ALARM_EVENT_READ_MAX 1023u                /* records read back                               */

typedef struct AlarmEventHead_S {        /* 256 bytes at 256 n of event000.bin                       */
    uint32_t m_u32AlarmEventFlag;        /*  0  ALARM_EVENT_FLAG                                     */
    uint32_t m_u32AlarmFileNo;           /*  4  record file number                                   */
    uint32_t m_u32AlarmStartTime;        /*  8                                                       */
    uint32_t m_u32AlarmEndTime;          /* 12  0 at creation                                        */
    uint32_t m_u32AlarmEventSum;         /* 16  records of the file, at most 1024                    */
    uint32_t m_u32PreAlarmEndTime;       /* 20  end of the previous alarm, the alarm thread's        */
    uint8_t  m_u8AlarmEventType;         /* 24  alarm types seen in the file, ORed                   */
    uint8_t  m_u8Res[231];               /* 25  the first 11 zero at creation                        */
} AlarmEventHead_S;

typedef struct AlarmFileInfoHead_S {     /* 48 bytes at (n + 8) 131072 + 48 (k - 1) of event000.bin  */
    uint32_t m_u32AlarmEventFlag;        /*  0  ALARM_RECORD_FLAG                                    */
    uint32_t m_u32AlarmStartTime;        /*  4                                                       */
    uint32_t m_u32AlarmEndTime;          /*  8  0 at creation                                        */
    uint32_t m_u32FileSize;              /* 12  bytes recorded during the alarm                      */
    uint32_t m_u32FrameCount;            /* 16  frames recorded during the alarm                     */
    uint16_t m_u16AlarmFileNo;           /* 20  record file number                                   */
    uint16_t m_u16AlarmFileUseNo;        /* 22  the record's number k, from 1                        */
    uint8_t  m_u8AlarmFileType;          /* 24  alarm type                                           */
    uint8_t  m_u8FrameRate;              /* 25  frames a second                                      */
    uint8_t  m_u8Res[22];                /* 26  zero                                                 */
} AlarmFileInfoHead_S;
/* clang-format on */

RECORD_SIZE(AlarmEventHead_S, 256);
RECORD_MEMBER(AlarmEventHead_S, m_u32PreAlarmEndTime, 20);
RECORD_MEMBER(AlarmEventHead_S, m_u8AlarmEventType, 24);
RECORD_SIZE(AlarmFileInfoHead_S, 48);
RECORD_MEMBER(AlarmFileInfoHead_S, m_u16AlarmFileUseNo, 22);
RECORD_MEMBER(AlarmFileInfoHead_S, m_u8FrameRate, 25);

int AV_AlarmEvnetOpen(const char* path, int mode); /* as AVFileOpen */
int AV_AlarmEvnetClose(int fd);

/* Event heads; a file number of ALARM_EVENT_FILE_MAX or above is refused. */
int AV_AlarmEventInfoHeadAdd(AlarmEventHead_S* head, uint32_t file_no, uint32_t start_time, uint8_t type);
int AV_AlarmEventInfoStartTimeFresh(AlarmEventHead_S* head, uint32_t time);
int AV_AlarmEventInfoEndTimeFresh(AlarmEventHead_S* head, uint32_t time);
int AV_AlarmEventInfoEventSumFresh(AlarmEventHead_S* head); /* stops silently at 1024 */
int AV_AlarmEventInfoEventTypeFresh(AlarmEventHead_S* head, uint8_t type_bits);
int AV_AlarmEventInfoWrite(int fd, uint32_t file_no, const AlarmEventHead_S* head);
int AV_AlarmEventInfoReset(int fd, uint32_t file_no, const AlarmEventHead_S* head); /* as Write */
int AV_AlarmEventInfoRead(int fd, uint32_t file_no, AlarmEventHead_S* head);
AVHeadLoad AVAlarmEventHeadLoad(int fd, uint32_t file_no, AlarmEventHead_S* head);
int AV_AlarmEventInfoClear(const char* path, uint32_t file_count); /* zeroes the heads of files 0 to count - 1 */

/* Event records.  Order: raise the head's count, make the record, write it into the count's slot. */
int AV_AlarmEventFileInfoAdd(const AlarmEventHead_S* head, AlarmFileInfoHead_S* record, uint32_t start_time,
                             uint8_t type);
int AV_AlarmEventFileInfoEndTimeFresh(AlarmFileInfoHead_S* record, uint32_t time);
int AV_AlarmEventFileInfoFileSizeFresh(AlarmFileInfoHead_S* record, uint32_t bytes);
int AV_AlarmEventFileInfoFrameCountFresh(AlarmFileInfoHead_S* record, uint32_t frames);
int AV_AlarmEventFileInfoFrameRateFresh(AlarmFileInfoHead_S* record, uint8_t rate);
/* -1 also when the head's count is 0 or above 1024. */
int AV_AlarmEventFileInfoWrite(int fd, const AlarmEventHead_S* head, const AlarmFileInfoHead_S* record);
/* Reads the records 1 to count; -1 also when the count is 0.  A count above 1023 is lowered to 1023 in
 * `head`.  `records` has room for min(count, 1023). */
int AV_AlarmEventFileInfoRead(int fd, AlarmEventHead_S* head, AlarmFileInfoHead_S* records);

/* ---- Program stream packets ---------------------------------------------------------------------
 *
 * ISO/IEC 13818-1, with two uses of our own: the pack stuffing bytes carry the frame's time, and the
 * descriptor bytes of the program stream map carry picture and sound parameters.
 *
 * A frame's clock (SCR base and PTS, 90 kHz) is 3600 * its index whatever the real frame rate: the
 * product is formed in single precision, exact while 225 * index < 2^24.
 *
 * The makers write to `out` without knowing its room: give the size stated, or what PackedVideoSize
 * and PackedAudioSize (below) say.  `kind` is AV_FRAME_TYPE_VIDEO or AV_FRAME_TYPE_AUDIO; `rate` is
 * accepted and ignored.  Negative lengths are refused with -1. */

/* clang-format off */
#define PS_PACK_HEADER_SIZE 18
#define PS_SYSTEM_HEADER_SIZE 18
#define PS_MAP_SIZE 48
#define PS_KEY_FRAME_HEADERS 84                   /* pack header, system header, program stream map  */
#define PS_PES_HEADER_SIZE 14                     /* PES_HEADER_tag and PTS_tag                      */
#define PS_PES_PAYLOAD_MAX 65470                  /* a longer payload is cut into several packets    */
#define PS_AUDIO_PAYLOAD_MAX 65527                /* an audio payload is one packet: 65535 - 8       */
/* clang-format on */

/* What the packer is told of the stream; bit and sample rates as configured. */
typedef struct AVStreamParam {
    uint16_t m_u8VedioCodeType; /* AVCodeType */
    uint16_t m_u8AudioCodeType; /* AVCodeType */
    uint16_t m_u16VedioWidth;   /* pixels     */
    uint16_t m_u16VedioHeight;  /* pixels     */
    uint16_t m_u16VedioBitRate;
    uint16_t m_u16VedioFrame;      /* frames a second */
    uint16_t m_u16AudioSampleRate; /* Hz        */
    uint16_t m_u16AudioBitRate;
} AVStreamParam;
RECORD_SIZE(AVStreamParam, 16);

/* Headers as they lie in the stream: bytes, in the standard's big-endian order. */
/* clang-format off */
typedef struct PS_HEADER_tag {           /* pack_header(), 2.5.3.4                                   */
    uint8_t pack_start_code[4];          /*  0                                                       */
    uint8_t system_clock_reference[6];   /*  4  base (33 bits), extension (9), markers               */
    uint8_t program_mux_rate[3];         /* 10  22 bits, markers                                     */
    uint8_t pack_stuffing_length;        /* 13  reserved 1s, 3 bits                                  */
    uint8_t frame_time[4];               /* 14  our own: seconds since 1970 UTC, little-endian       */
} PS_HEADER_tag;

typedef struct Ps_System_Header_tag {    /* system_header(), 2.5.3.6                                 */
    uint8_t system_header_start_code[4]; /*  0                                                       */
    uint8_t header_length[2];            /*  4  bytes that follow                                    */
    uint8_t rate_bound[3];               /*  6  22 bits, markers                                     */
    uint8_t audio_bound;                 /*  9  6 bits, flags                                        */
    uint8_t video_bound;                 /* 10  flags, marker, 5 bits                                */
    uint8_t packet_rate_restriction;     /* 11  flag, reserved 1s                                    */
    uint8_t video_stream[3];             /* 12  stream id, buffer bound scale and size (13 bits)     */
    uint8_t audio_stream[3];             /* 15  the same                                             */
} Ps_System_Header_tag;

typedef struct PSM_tag {                       /* program_stream_map(), 2.5.4.1                      */
    uint8_t  packet_start_code[4];             /*  0                                                 */
    uint8_t  program_stream_map_length[2];     /*  4                                                 */
    uint8_t  version[2];                       /*  6  current_next_indicator, version, marker        */
    uint8_t  program_stream_info_length[2];    /*  8                                                 */
    uint8_t  elementary_stream_map_length[2];  /* 10                                                 */
    uint8_t  video_stream_type;                /* 12  0x24 HEVC, 0x1B AVC                            */
    uint8_t  video_elementary_stream_id;       /* 13                                                 */
    uint8_t  video_info_length[2];             /* 14                                                 */
    uint16_t vedio_width;                      /* 16  little-endian, as the other 16-bit members     */
    uint16_t vedio_height;                     /* 18                                                 */
    uint16_t vedio_Bit_rate;                   /* 20                                                 */
    uint8_t  vedio_frame_rate;                 /* 22                                                 */
    uint8_t  video_tail[5];                    /* 23                                                 */
    uint8_t  audio_stream_type;                /* 28  0x0F AAC, 0x91 G.711 u-law, 0x90 A-law, else 0 */
    uint8_t  audio_elementary_stream_id;       /* 29                                                 */
    uint8_t  audio_info_length[2];             /* 30                                                 */
    uint16_t audio_samplerate;                 /* 32                                                 */
    uint16_t audio_bitrate;                    /* 34                                                 */
    uint8_t  audio_tail[8];                    /* 36                                                 */
    uint8_t  CRC_32[4];                        /* 44  zero, not computed                             */
} PSM_tag;

typedef struct PES_HEADER_tag {          /* PES_packet(), 2.4.3.6                                    */
    uint8_t packet_start_code_prefix[3]; /* 0                                                        */
    uint8_t stream_id;                   /* 3  0xE0 video, 0xC0 audio                                */
    uint8_t PES_packet_length[2];        /* 4  payload + 8; 0 for an empty payload                   */
    uint8_t flags[2];                    /* 6  '10' and no flag; PTS only                            */
    uint8_t PES_header_data_length;      /* 8  5                                                     */
} PES_HEADER_tag;

typedef struct PTS_tag {                 /* '0010', PTS (33 bits) in three parts, markers            */
    uint8_t pts[5];
} PTS_tag;
/* clang-format on */

RECORD_SIZE(PS_HEADER_tag, 18);
RECORD_SIZE(Ps_System_Header_tag, 18);
RECORD_SIZE(PSM_tag, 48);
RECORD_MEMBER(PSM_tag, vedio_width, 16);
RECORD_MEMBER(PSM_tag, audio_stream_type, 28);
RECORD_MEMBER(PSM_tag, audio_samplerate, 32);
RECORD_SIZE(PES_HEADER_tag, 9);
RECORD_SIZE(PTS_tag, 5);

/* Fill a header with its constant bits; everything else is 0.  Return 0, or -1 for a null pointer. */
int PS_HEADER_tag_Init(PS_HEADER_tag* header);
int Ps_System_Header_tag_Init(Ps_System_Header_tag* header);
int PSM_tag_Init(PSM_tag* map, const AVStreamParam* param);
int PES_HEADER_tag_Init(PES_HEADER_tag* header);
int PTS_tag_Init(PTS_tag* pts);

/* Single fields of a header.  A setter stores the field's low bits and leaves every other bit alone.
 * The header must not be null. */
uint64_t PS_HEADER_tag_GetSystem_clock_reference_base(const PS_HEADER_tag* header);
void PS_HEADER_tag_SetSystem_clock_reference_base(PS_HEADER_tag* header, uint64_t base);
uint32_t PS_HEADER_tag_GetProgram_mux_rate(const PS_HEADER_tag* header);
void PS_HEADER_tag_SetProgram_mux_rate(PS_HEADER_tag* header, uint32_t rate);
uint32_t Ps_System_Header_tag_GetRateBound(const Ps_System_Header_tag* header);
void Ps_System_Header_tag_SetRateBound(Ps_System_Header_tag* header, uint32_t bound);
void Ps_System_Header_tag_SetPstdBufSizeBound1(Ps_System_Header_tag* header, uint32_t bound); /* video */
void Ps_System_Header_tag_SetPstdBufSizeBound2(Ps_System_Header_tag* header, uint32_t bound); /* audio */
uint64_t PTS_Tag_GetPTS(const PTS_tag* pts);
void PTS_Tag_SetPTS(PTS_tag* pts, uint64_t value);

/* Single headers.  Return the bytes written; -1 for a null pointer, another kind, or a payload whose
 * packet length 16 bits do not hold (above PS_AUDIO_PAYLOAD_MAX). */
int make_ps_packet_header(void* out, uint32_t frame_index, int rate, uint32_t time);
int make_sys_packet_header(void* out);
int make_pes_packet_header(void* out, uint32_t frame_index, int kind, int rate, int payload_length);

/* A payload as packets of at most PS_PES_PAYLOAD_MAX bytes.  Return the bytes written, 0 for length 0. */
int make_iframe_pes_packet(const void* payload, int length, void* out, uint32_t frame_index, int kind);
int make_Pframe_pes_packet(const void* payload, int length, void* out, uint32_t frame_index, int kind);

/* A key frame: the 84 header bytes, then the frame from its first start code (00 00 00 01) on, cut at
 * its second and third.  A frame without a start code in front of its last four bytes gives the
 * headers alone. */
int makeIFrameHeader(const void* frame, int length, void* out, uint32_t frame_index, int kind,
                     const AVStreamParam* param, uint32_t time);
/* Any other video frame: pack header and packets. */
int makePFrameHeader(const void* frame, int length, void* out, uint32_t frame_index, int kind, uint32_t time);
/* Pack header and one PES header; the payload is the caller's to add. */
int makePFrameHeader2(void* out, uint32_t frame_index, int kind, int payload_length, uint32_t time);
int makeAudioFrameHeader(void* out, uint32_t frame_index, int kind, int payload_length);

/* Pack one frame.  Return the packed size, or -1. */
int libAVRecordVideoPsStreamWrite(int is_key, const void* frame, int length, void* out, uint32_t frame_index,
                                  const AVStreamParam* param, uint32_t time);
/* One packet with the clock of `frame_index` + 1; at most PS_AUDIO_PAYLOAD_MAX bytes of payload. */
int libAVRecordAudioPsStreamWrite(const void* payload, int length, void* out, uint32_t frame_index);

/* ---- Playback ----------------------------------------------------------------------------------- */

#define PLAYBACK_GATHER_MAX 0x60800 /* a key frame that gathered more gets no packet */
#define PLAYBACK_BUFFER_SIZE (PLAYBACK_GATHER_MAX + PS_PES_PAYLOAD_MAX) /* what `buffer` must hold   */

/* Reads the frame that starts at `*offset` of a record file: payload bytes joined, kind (AVFrameType),
 * time (video only; audio leaves `*time` alone) and the low 32 bits of the PTS.  On success 0 and
 * `*offset` is the next frame's; on any error -1 and `*offset` is unchanged, `buffer` may hold a part.
 *
 * Safe on any bytes.  Not a general demultiplexer: it takes what the packer makes.  The 40-byte head
 * in front of a section's first frame ("IMKH...") is not a frame: begin after it. */
int libAVRecordPlayBackGetPSFrame(int fd, uint32_t* offset, int* kind, void* buffer, uint32_t* length, uint32_t* time,
                                  uint32_t* pts);
int libAVRecordFileDataSeek(int fd, uint32_t offset);          /* from the start; the new offset, or -1 */
int libAVRecordFileDataRead(int fd, void* buffer, int length); /* as AVFileRead */

#ifdef __cplusplus
} /* extern "C" */

/* Exact sizes of what libAVRecordVideoPsStreamWrite and libAVRecordAudioPsStreamWrite would write, for
 * a caller with a buffer of fixed size; -1 where they refuse.  `length` bytes of `frame` are looked at
 * for a key frame only. */
int64_t PackedVideoSize(bool is_key, const void* frame, int length);
int64_t PackedAudioSize(int length);
#endif
#endif
