"""A path on loopback between a sender and `vrc listen` that delays, loses and reorders datagrams, both ways."""
import contextlib
import dataclasses
import heapq
import itertools
import os
import random
import selectors
import socket
import threading
import time

LOOPBACK = "127.0.0.1"
DATAGRAM_MAX = 65536
ONE_WAY_S = 0.030
LATE_SHARE = 0.05  # of the datagrams of a path that reorders
LATE_S = 0.025     # so much later than the others do they come


@dataclasses.dataclass
class Damage:
    """What a path does to datagrams, the same in both directions."""

    loss: float = 0.0       # share of the datagrams
    burst: float = 1.0      # datagrams lost at a time, in the mean
    reorders: bool = False  # some come later than what was sent behind them
    seed: int = 1


class Direction:
    """Decides about one datagram after the other."""

    def __init__(self, damage, seed):
        self.damage = damage
        self.random = random.Random(seed)
        self.is_losing = False

    def is_lost(self):
        """Two states: after a loss the next is lost as well with the chance that makes bursts of the mean length."""
        burst, loss = self.damage.burst, self.damage.loss
        again, first = (1 - 1 / burst, loss / burst / (1 - loss)) if burst > 1 else (loss, loss)
        self.is_losing = self.random.random() < (again if self.is_losing else first)
        return self.is_losing

    def delay(self):
        is_late = self.damage.reorders and self.random.random() < LATE_SHARE
        return ONE_WAY_S + (LATE_S if is_late else 0)


LOWEST_PORT, PORT_PAIRS, PAIRS_OF_PROCESS = 10000, 10000, 64
pair_numbers = itertools.count(os.getpid() * PAIRS_OF_PROCESS)


def open_socket(port=0):
    opened = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    opened.bind((LOOPBACK, port))
    return opened


def free_port_pair():
    """A free port whose neighbour above is free as well, another one each time. It is below those that the system gives
    out, and from a place of the process's own, so that what runs beside it does not take it before it is used."""
    for number in itertools.islice(pair_numbers, PORT_PAIRS):
        port = LOWEST_PORT + 2 * (number % PORT_PAIRS)
        with contextlib.suppress(OSError), open_socket(port), open_socket(port + 1):
            return port
    raise SystemExit("no two neighbouring ports are free")


class LossyPath:
    """Runs as long as the `with` block does. Sender and receiver send to it, not to each other."""

    def __init__(self, damage, receiver_port, feedback_port):
        self.rtp_in, self.rtcp_in, self.rtp_out, self.rtcp_out = (open_socket() for _ in range(4))
        forward, backward = Direction(damage, damage.seed), Direction(damage, damage.seed + 1000)
        to_rtp, to_rtcp = (LOOPBACK, receiver_port), (LOOPBACK, receiver_port + 1)
        to_sender = (LOOPBACK, feedback_port)
        self.routes = {
            self.rtp_in: (forward, self.rtp_out, to_rtp),
            self.rtcp_in: (forward, self.rtcp_out, to_rtcp),
            self.rtcp_out: (backward, self.rtcp_in, to_sender),
        }
        self.is_silent = False  # set from outside: nothing gets through
        self.is_over = False
        self.thread = threading.Thread(target=self.run, daemon=True)

    def port(self, name):
        return getattr(self, name).getsockname()[1]

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.is_over = True
        self.thread.join()
        for opened in (self.rtp_in, self.rtcp_in, self.rtp_out, self.rtcp_out):
            opened.close()

    def run(self):
        under_way, order = [], itertools.count()
        with selectors.DefaultSelector() as selector:
            for source in self.routes:
                selector.register(source, selectors.EVENT_READ)
            while not self.is_over:
                wait = under_way[0][0] - time.monotonic() if under_way else 0.1
                for key, _ in selector.select(max(0, min(wait, 0.1))):
                    self.take(key.fileobj, under_way, order)
                while under_way and under_way[0][0] <= time.monotonic():
                    _, _, outlet, data, to = heapq.heappop(under_way)
                    self.send(outlet, data, to)

    def take(self, source, under_way, order):
        direction, outlet, to = self.routes[source]
        try:
            data = source.recv(DATAGRAM_MAX)
        except ConnectionError:  # what was sent before found nobody
            return
        if not direction.is_lost() and not self.is_silent:
            heapq.heappush(under_way, (time.monotonic() + direction.delay(), next(order), outlet, data, to))

    @staticmethod
    def send(outlet, data, to):
        try:
            outlet.sendto(data, to)
        except ConnectionError:
            pass
