/* System V message queues and shared segments, by fixed numeric key.
 *
 * A message is any record of ours whose first member is the 4-byte message type; `size` is always
 * the whole record, and size - 4 payload bytes travel.  The host's own message buffer (whose type
 * is a native long) is known here and nowhere else, so 32- and 64-bit processes share queues.
 *
 * Keeps no state; never logs; every function may be called from any thread.
 */
#ifndef LIB_IPC_UTILS_H
#define LIB_IPC_UTILS_H

#ifdef __cplusplus
extern "C" {
#endif

/* ---- IpcMsgUtils: message queues ---- */

/* Opens the queue of `msgKey`, or creates it with permissions 0666.  Returns its id, or a negative value. */
int IpcMsgInit(int msgKey);

/* Sends the record at `pdata` (`size` bytes, type included); blocks while the queue is full.
 * Returns 0, or -1 with errno.  A null record or a size below 4 is refused with -1 (EINVAL). */
int IpcMsgSend(int qid, void* pdata, int size);

/* Waits, without limit, for the first message of type `msg_type` and stores it with its type in the
 * record at `pdata` (room for `size` bytes).  Returns the payload bytes received, or -1 with errno
 * (E2BIG: the message is longer than size - 4 and stays queued). */
int IpcMsgRecv(int qid, int msg_type, void* pdata, int size);

/* IpcMsgSend and, only if that succeeded, IpcMsgRecv into the same record. */
int IpcMsgSendRecv(int qid, int msg_type, void* pdata, int size);

/* The same without waiting, for callers that must stay stoppable: -1 with errno EAGAIN when the queue
 * is full, or ENOMSG when no message of that type is there. */
int IpcMsgTrySend(int qid, void* pdata, int size);
int IpcMsgTryRecv(int qid, int msg_type, void* pdata, int size);

/* Takes the first message of type `msg_type`, however long it is, and throws it away.  Returns 0, or -1 with errno
 * (ENOMSG: there is none). */
int IpcMsgDiscard(int qid, int msg_type);

/* Messages of all types that wait in the queue, or -1. */
int IpcMsgCount(int qid);

/* Removes the queue.  Returns 0 always. */
int IpcMsgKill(int qid);

/* ---- IpcShareMemUtils: shared segments ---- */

/* The segment of `key`, created with `size` bytes and permissions 0777 when missing; an existing
 * segment is taken whatever its size.  Returns its id, or -1. */
int IpcShareMemInit(int key, int size);

/* Removes the segment of `key` if there is one whose id is above 0.  Returns 0 always. */
int IpcShareMemUnInit(int key);

/* Removes the segment `mid`.  Returns 0 always. */
int IpcShareMemDestroy(int mid);

/* Copies `length` bytes between `buf` and byte `offset` of the segment; it is attached and detached
 * anew on every call.  A stretch that does not lie inside the segment, and a segment that cannot be
 * attached, copy nothing. */
void IpcShareMemRead(int mid, int offset, void* buf, int length);
void IpcShareMemWrite(int mid, int offset, void* buf, int length);

#ifdef __cplusplus
}
#endif
#endif
