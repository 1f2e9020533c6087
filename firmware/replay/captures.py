"""What the checks of replays share: captures as they are and damaged, and what the images are told of them."""
import json
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent

DAMAGE = {
    "as it is": [],
    "loss": ["--seed", "1", "--loss", "2"],
    "bursts": ["--seed", "2", "--loss", "5", "--burst", "6"],
    "reordering": ["--seed", "3", "--reorder", "10", "--distance", "12"],
    "duplicates": ["--seed", "4", "--duplicate", "20"],
    "all at once": ["--seed", "5", "--loss", "1", "--reorder", "5", "--duplicate", "5", "--distance", "20"],
    "changed bytes": ["--seed", "6", "--flip", "5"],
    "cut off": ["--seed", "7", "--truncate"],
}


def fail(text):
    sys.exit(f"{pathlib.Path(sys.argv[0]).name}: {text}")


def run(command):
    """The standard output of a command that has to succeed."""
    result = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=False)
    if result.returncode != 0:
        fail(f"status {result.returncode} of {' '.join(map(str, command))}\n{result.stdout}")
    return result.stdout


def damaged(capture, directory):
    """(damage, capture with it) for each kind of damage; the files are in `directory` until the next one is asked for."""
    for damage, arguments in DAMAGE.items():
        path = directory / "damaged.pcap"
        if arguments:
            run([ROOT / "tests/data/damage_capture", capture, path, *arguments])
        yield damage, path if arguments else capture


def stream_arguments(vrc, capture):
    """SSRC, payload type and codec of the capture's stream, as the images want them."""
    stream = json.loads(run([vrc, "replay", capture, "--json"]))["stream"]
    return [hex(stream["ssrc"]), str(stream["payload_type"]), stream["codec"]]
