"""`vrc listen` as a child process, and what came out of it when."""
import json
import os
import pathlib
import signal
import subprocess
import threading
import time

START_LIMIT_S = 20
STOP_LIMIT_S = 20
LIFE_S = 150  # nobody is left behind when a test is killed
READ_SIZE = 1 << 20


class Receiver:
    """Runs as long as the `with` block does; `data`, `arrivals` and `summary` are there behind it."""

    def __init__(self, vrc, port, arguments, directory):
        self.port = port
        self.command = [vrc, "listen", "--json", "-o", "-", "--duration", str(LIFE_S), *arguments]
        self.summary_path = directory / f"summary-{port}.json"
        self.data = b""
        self.arrivals = []  # (size so far, time)
        self.summary = None

    def __enter__(self):
        self.errors = self.summary_path.open("wb")
        self.process = subprocess.Popen(self.command, stdout=subprocess.PIPE, stderr=self.errors)
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()
        self.wait_for_port()
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGINT)
        try:
            self.process.wait(STOP_LIMIT_S)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.reader.join()
        self.errors.close()
        text = self.summary_path.read_text()
        if self.process.returncode != 0:
            raise SystemExit(f"vrc exits with {self.process.returncode}: {text}")
        self.summary = json.loads(text)

    def wait_for_port(self):
        end = time.monotonic() + START_LIMIT_S
        while time.monotonic() < end and self.process.poll() is None:
            # Looked up, as a socket of ours on that port could be in the receiver's way.
            if f":{self.port + 1:04X} " in pathlib.Path("/proc/net/udp").read_text():
                return
            time.sleep(0.02)
        raise SystemExit(f"vrc does not listen: {self.summary_path.read_text()}")

    def read(self):
        pieces, size = [], 0
        while piece := os.read(self.process.stdout.fileno(), READ_SIZE):
            size += len(piece)
            self.arrivals.append((size, time.monotonic()))
            pieces.append(piece)
        self.data = b"".join(pieces)
