/* The camera's configuration, read in place, and the way to ask for a change of it.
 *
 * Owns this process's attachment of the configuration segment and the client side of the system
 * server's request channel (a queue and a transfer segment with one slot a process).
 * Never writes the configuration itself, never removes a queue or segment of the server's.
 * Any thread may read the configuration and send requests; requests of one process go one at a time.
 * Start and stop functions are for one thread, while no other is reading the configuration.
 *
 * Results are 0 (or what the server answered) and -1 for failure unless said otherwise.
 */
#ifndef LIB_OTHERS_H
#define LIB_OTHERS_H

#include <pthread.h>

#include "SysInfo.h"
#include "SysSenders.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Configuration record ---- */

/* Attaches the configuration segment, creating it (147,456 bytes, mode 0660) when missing; one that
 * exists with another size is taken as it is, and reads past its end give zeros.
 * Returns 0, or -1 when it cannot be had; GetSysconfigData then goes on trying, once a second. */
int SysConfigInit(void);

/* The attached record, valid until SysconfigExit; null before SysConfigInit and while there is none.  The
 * system server may change it at any time: read members singly and freshly, keep no copy.  Any thread.
 * When the server has removed the segment and filled a new one, that one is found at the same address,
 * one or two seconds later; until then the last settings are. */
SysInfo* GetSysconfigData(void);

/* Detaches the record.  Nobody may be reading it.  Returns 0. */
int SysconfigExit(void);

/* ---- Requests by field ---- */

typedef enum SystemField {
    SFIELD_START = 4096,    /* first code of the first block  */
    SFIELD_END = 4442,      /* last code of the first block   */
    SFIELD_EX_START = 8192, /* first code of the second block */
    SFIELD_EX_END = 8218,   /* last code of the second block  */
#define SYS_FIELD(function, message, command, field, code) field = code,
    SYS_SENDERS(SYS_FIELD)
#undef SYS_FIELD
} SystemField;

/* Starts the request channel for process number `proc_id` (1..15); 0, or -1 as SysDrvInit. */
int SysCtrlInit(int proc_id);

/* Stops the request channel.  Returns 0. */
int SysCtrlExit(void);

/* Asks the system server to change `field` (SFIELD_*) to the `len` bytes at `data`.  Returns the
 * sender's result; -1 for a null `data` or a code without sender, and then nothing is sent. */
int ControlSystemData(unsigned int field, void* data, unsigned int len);

/* ---- System message driver ---- */

#define SYS_DRV_KEY 14073       /* 0x36F9, request queue and transfer segment            */
#define SYS_DRV_SLOT_SIZE 12288 /* bytes of one process's slot in the transfer segment   */
#define SYS_MSG_TYPE_SERVER 1   /* message type of requests                              */

typedef struct SYS_MSG_BUF { /* 24 bytes, 20 of them travel after the message type                     */
    int32_t Des;             /*  0  request: SYS_MSG_TYPE_SERVER; reply: the client's process number   */
    int32_t cmd;             /*  4  SYS_MSG_*                                                          */
    int32_t src;             /*  8  sender's process number                                            */
    int32_t shmid;           /* 12  0 in requests                                                      */
    int32_t length;          /* 16  request: bytes of payload; reply: the server's result              */
    int32_t offset;          /* 20  place of the payload in the transfer segment                       */
} SYS_MSG_BUF;
RECORD_SIZE(SYS_MSG_BUF, 24);
RECORD_MEMBER(SYS_MSG_BUF, length, 16);

typedef enum SystemMessage {
    SYS_MSG_QUIT = 251,
    SYS_MSG_MAX = 369,
#define SYS_MESSAGE(function, message, command, field, code) message = command,
    SYS_SENDERS(SYS_MESSAGE)
#undef SYS_MESSAGE
} SystemMessage;

/* Opens the transfer segment and the request queue for process number `proc_id`.  Returns 0; -1 for a
 * number outside 1..15 or when either cannot be had, and then the number is 1 again.  A start that
 * failed so is tried again by the next request. */
int SysDrvInit(int proc_id);

/* Forgets the process number and the driver's lock, once a request under way is answered; queue and
 * segment stay.  Returns 0. */
int SysDrvExit(void);

/* Set this client's process number and the queue of requests directly. */
void SetSysProcId(int proc_id);
void SaveSysMsgId(int qid);

/* Puts `len` bytes of `data` into this process's slot, throws away what waits for this process, sends
 * command `cmd` and waits for the answer to it, for 4 s at most.  A request that finds the queue removed is
 * sent again to the new one.  Returns the server's result; -1, with nothing written or sent, before the
 * start (process number 1) and for a payload that is null or does not fit the slot (12288 bytes, numbers
 * 2..13).  A request that cannot be sent or has no answer in time gives `len`. */
int SetSysCommon(void* data, unsigned int len, int cmd);

/* The senders: SetSysCommon with the row's command code.  DoSysLogin differs in its result: 0 when
 * the server's result is `len`, else -1. */
#define SYS_SENDER_PROTOTYPE(function, message, command, field, code) int function(void* data, unsigned int len);
SYS_SENDERS(SYS_SENDER_PROTOTYPE)
#undef SYS_SENDER_PROTOTYPE

/* Tells the system server to quit; carries neither payload nor sender and waits for nothing.
 * Returns 0, or -1 when it cannot be sent. */
int SendSysQuitCmd(void);

/* ---- Shared segments, queues and locks of the driver ---- */

/* The segment of `key`, created with 147,456 bytes and mode 0660 when missing; one that exists with
 * another size is taken as it is.  Return its id or -1; ShareMemInit keeps it for the two below. */
int ShareMemInit(int key);
int pShareMemInit(int key);

/* Copy `len` bytes between `buf` and byte `offset` of the kept segment.  Return 0; -1, with nothing
 * copied, when there is no segment, `buf` is null or the stretch does not lie inside.  No lock. */
int ShareMemRead(int offset, void* buf, int len);
int ShareMemWrite(int offset, void* buf, int len);

/* Queue of `key`, created (mode 0666) when missing: its id, or a negative value. */
int Msg_Init(int key);

/* Send and receive a record whose first member is the 4-byte message type; `size` is the whole
 * record.  Blocking; results of the kernel's msgsnd and msgrcv. */
int Msg_Send(int qid, void* msg, int size);
int Msg_Rsv(int qid, int type, void* msg, int size);

/* Msg_Send and, if that succeeded, Msg_Rsv into the same record. */
int Msg_Send_Rsv(int qid, int type, void* msg, int size);

/* Removes the queue.  Returns 0. */
int Msg_Kill(int qid);

typedef pthread_mutex_t* SemHandl_t;

/* A new lock, or null.  The caller gives it back through DestroySem. */
SemHandl_t MakeSem(void);

/* Lock and unlock; 0, or -1 for null. */
int SemWait(SemHandl_t handle);
int SemRelease(SemHandl_t handle);

/* Waits for the present holder, then destroys and frees the lock.  Returns 0, or -1 for null. */
int DestroySem(SemHandl_t handle);

#ifdef __cplusplus
}
#endif
#endif
