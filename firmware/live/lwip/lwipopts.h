/* lwIP on the board: no operating system, UDP over IPv4, one interface that is polled. */
#ifndef LWIPOPTS_H
#define LWIPOPTS_H

#define NO_SYS 1
#define SYS_LIGHTWEIGHT_PROT 0
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

#endif
