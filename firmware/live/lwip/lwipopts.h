/* lwIP on the board: UDP over IPv4, one interface. Without an operating system (NO_SYS 1) its users poll it; with one, its
 * own task runs it, and other tasks call it with its core locked. */
#ifndef LWIPOPTS_H
#define LWIPOPTS_H

#ifndef NO_SYS
#error NO_SYS is 0 or 1, from the build
#endif

#define LWIP_SOCKET 0
#define LWIP_NETCONN 0

#define LWIP_TCP 0
#define LWIP_UDP 1
#define LWIP_ARP 1
#define IP_REASSEMBLY 0
#define IP_FRAG 0

#define MEM_ALIGNMENT 4
#define MEM_SIZE 32768    /* bytes, for what is sent */
#define PBUF_POOL_SIZE 32 /* frames received */

#define LWIP_STATS 0

#if NO_SYS
#define SYS_LIGHTWEIGHT_PROT 0
#else
#define SYS_LIGHTWEIGHT_PROT 1 /* the driver's task allocates what lwIP's frees */
#define LWIP_TCPIP_CORE_LOCKING 1
#define LWIP_ASSERT_CORE_LOCKED() sys_assert_core_locked()
#ifdef __cplusplus
extern "C"
#endif
    void
    sys_assert_core_locked(void); /* that the task which calls lwIP has its lock */
#define TCPIP_THREAD_NAME "tcpip"
#define TCPIP_THREAD_PRIO 3
#define TCPIP_THREAD_STACKSIZE 512              /* words */
#define TCPIP_MBOX_SIZE PBUF_POOL_SIZE          /* frames that wait for the task */
#define MEMP_NUM_TCPIP_MSG_INPKT PBUF_POOL_SIZE /* the same */
#endif

#endif
