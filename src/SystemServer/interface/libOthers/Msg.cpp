#include <sys/ipc.h>
#include <sys/msg.h>

#include "libIpcUtils.h"
#include "libLog.h"
#include "libOthers.h"

int Msg_Init(int key) {
    int qid = msgget(key, 0);
    if (qid < 0) {
        qid = msgget(key, IPC_CREAT | 0666);
        PrintToStandardError("Creat queue id:%d\n", qid);
    }
    PrintToStandardError("queue id:%d\n", qid);
    return qid;
}

int Msg_Send(int qid, void* msg, int size) {
    return IpcMsgSend(qid, msg, size);
}

int Msg_Rsv(int qid, int type, void* msg, int size) {
    return IpcMsgRecv(qid, type, msg, size);
}

int Msg_Send_Rsv(int qid, int type, void* msg, int size) {
    return IpcMsgSendRecv(qid, type, msg, size);
}

int Msg_Kill(int qid) {
    IpcMsgKill(qid);
    PrintToStandardError("Kill queue id:%d\n", qid);
    return 0;
}
