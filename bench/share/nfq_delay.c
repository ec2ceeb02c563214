/* nfq_delay.c -- a netem stand-in for kernels built without sch_netem (this one: CONFIG_NET_SCH_NETEM
 * is not set, nor sch_fq). Every packet that netfilter hands to NFQUEUE QUEUE is held for DELAY
 * microseconds and then accepted, in arrival order (the delay is constant, so a FIFO is the
 * deadline order). With the rule "-t mangle -A OUTPUT -o lo -j NFQUEUE" in a network namespace,
 * each packet crosses it once, so a round trip costs 2*DELAY -- as with "tc qdisc ... netem delay".
 * No bandwidth limit, no loss, no reordering, no jitter beyond the timer's. SPIN_US: wake that much
 * before a packet is due and spin until it is (a sleeping virtual CPU here can wake 0.1-1 ms late, which
 * at DELAY 1 ms would be a 10-30% error); 0: always sleep.
 *
 * build: gcc -O2 -Wall nfq_delay.c -o nfq_delay -lnetfilter_queue -lnfnetlink   (apt: libnetfilter-queue-dev)
 * run:   nfq_delay QUEUE DELAY_US [PIDFILE [SPIN_US]]   (foreground; SIGTERM ends it; SIGUSR1 and the end print
 *        packets, the most held at once, how late the verdicts were, ENOBUFS on stderr, and restart them)
 */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <errno.h>
#include <libnetfilter_queue/libnetfilter_queue.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#ifndef NF_ACCEPT
#define NF_ACCEPT 1
#endif

typedef struct {
    uint32_t id;
    uint64_t due;
} held_t;
static held_t* fifo;
static size_t cap = 1 << 16, head, tail; /* tail-head = held */
static uint64_t delay_ns, npkts, nenobufs, maxheld, late_ns_max, late_ns_sum, nverdicts;
static uint64_t spin_ns; /* wake this much early and spin: a halted vCPU wakes late (~0.1-1 ms here) */
static volatile sig_atomic_t stop, dump;

static uint64_t now_ns(void)
{
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (uint64_t)t.tv_sec * 1000000000ull + t.tv_nsec;
}

static void push(uint32_t id, uint64_t due)
{
    if (tail - head == cap) { /* grow, keeping order */
        held_t* n = malloc(2 * cap * sizeof *n);
        if (!n) {
            perror("malloc");
            exit(1);
        }
        for (size_t i = 0; i < cap; i++) n[i] = fifo[(head + i) % cap];
        free(fifo);
        fifo = n;
        head = 0;
        tail = cap;
        cap *= 2;
    }
    fifo[tail % cap] = (held_t){id, due};
    tail++;
    if (tail - head > maxheld) maxheld = tail - head;
}

static int cb(struct nfq_q_handle* qh, struct nfgenmsg* m, struct nfq_data* nfa, void* data)
{
    (void)qh;
    (void)m;
    (void)data;
    struct nfqnl_msg_packet_hdr* ph = nfq_get_msg_packet_hdr(nfa);
    if (ph) {
        push(ntohl(ph->packet_id), now_ns() + delay_ns);
        npkts++;
    }
    return 0;
}

static void onsig(int s)
{
    if (s == SIGUSR1) dump = 1;
    else stop = 1;
}

static void stats(void)
{ /* since the start or the last SIGUSR1; then the counters restart */
    fprintf(stderr, "nfq_delay: %llu packets, max held %llu, verdict late by mean %.1f us max %.1f us, ENOBUFS %llu\n",
            (unsigned long long)npkts, (unsigned long long)maxheld, nverdicts ? late_ns_sum / 1e3 / nverdicts : 0.0, late_ns_max / 1e3,
            (unsigned long long)nenobufs);
    npkts = maxheld = late_ns_max = late_ns_sum = nverdicts = nenobufs = 0;
}

int main(int argc, char** argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: %s QUEUE DELAY_US [PIDFILE [SPIN_US]]\n", argv[0]);
        return 2;
    }
    if (argc > 4) spin_ns = (uint64_t)(atof(argv[4]) * 1000.0);
    int qnum = atoi(argv[1]);
    delay_ns = (uint64_t)(atof(argv[2]) * 1000.0);
    fifo = malloc(cap * sizeof *fifo);
    prctl(PR_SET_TIMERSLACK, 1UL); /* wake on time: the default 50 us slack would add to the delay */
    /* The "wire" must not wait for a CPU: the machine is small and shared, and a late verdict would
     * add the scheduler's delay to the network's. SCHED_FIFO where allowed (it sleeps almost always). */
    struct sched_param sp = {.sched_priority = 20};
    if (sched_setscheduler(0, SCHED_FIFO, &sp) < 0) perror("nfq_delay: SCHED_FIFO (going on without)");
    struct nfq_handle* h = nfq_open();
    if (!h) {
        perror("nfq_open");
        return 1;
    }
    nfq_unbind_pf(h, AF_INET);
    nfq_bind_pf(h, AF_INET);
    nfq_unbind_pf(h, AF_INET6);
    nfq_bind_pf(h, AF_INET6);
    struct nfq_q_handle* qh = nfq_create_queue(h, qnum, cb, NULL);
    if (!qh) {
        perror("nfq_create_queue");
        return 1;
    }
    if (nfq_set_mode(qh, NFQNL_COPY_META, 0) < 0) {
        perror("nfq_set_mode");
        return 1;
    }
    nfq_set_queue_maxlen(qh, 1 << 20);
    nfq_set_queue_flags(qh, NFQA_CFG_F_GSO, NFQA_CFG_F_GSO); /* no segmentation: metadata only */
    nfnl_rcvbufsiz(nfq_nfnlh(h), 64 << 20);
    int fd = nfq_fd(h);
    signal(SIGTERM, onsig);
    signal(SIGINT, onsig);
    signal(SIGUSR1, onsig);
    if (argc > 3) {
        FILE* p = fopen(argv[3], "w");
        if (p) {
            fprintf(p, "%d\n", getpid());
            fclose(p);
        }
    }
    char buf[65536] __attribute__((aligned));
    while (!stop) {
        if (dump) {
            dump = 0;
            stats();
        }
        uint64_t t = now_ns();
        while (head < tail && fifo[head % cap].due <= t) {
            uint64_t late = t - fifo[head % cap].due;
            if (late > late_ns_max) late_ns_max = late;
            late_ns_sum += late;
            nverdicts++;
            nfq_set_verdict(qh, fifo[head % cap].id, NF_ACCEPT, 0, NULL);
            head++;
        }
        struct timespec ts, *tsp = NULL;
        if (head < tail) {
            uint64_t w = fifo[head % cap].due - t;
            w = w > spin_ns ? w - spin_ns : 0; /* the last spin_ns: poll without sleeping */
            ts.tv_sec = w / 1000000000ull;
            ts.tv_nsec = w % 1000000000ull;
            tsp = &ts;
        }
        struct pollfd pfd = {fd, POLLIN, 0};
        int r = ppoll(&pfd, 1, tsp, NULL);
        if (r < 0 && errno != EINTR) {
            perror("ppoll");
            break;
        }
        if (r > 0 && (pfd.revents & POLLIN)) {
            for (;;) {
                ssize_t n = recv(fd, buf, sizeof buf, MSG_DONTWAIT);
                if (n > 0) {
                    nfq_handle_packet(h, buf, (int)n);
                    continue;
                }
                if (n < 0 && errno == ENOBUFS) {
                    nenobufs++;
                    continue;
                }
                break;
            }
        }
    }
    for (; head < tail; head++) nfq_set_verdict(qh, fifo[head % cap].id, NF_ACCEPT, 0, NULL);
    stats();
    nfq_destroy_queue(qh);
    nfq_close(h);
    return 0;
}
