"""What script/size and script/instructions share: builds to measure, and the tables in docs/ that hold the figures.

A table stands under a heading. Its first column names a row, the others hold whole numbers. It has grown when a figure
is above the published one by more than the room that there is for it, or when a row is not published.
"""
import os
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BEGIN = '<!-- {} --write writes from here -->\n'
END = '<!-- to here -->\n'
JOBS = '2'
SLACK = 2  # what is counted, not known, may be off by one at both ends


def fail(message):
    print(message, file=sys.stderr)
    sys.exit(1)


def run(*command, **options):
    """Runs a command, and says what it wrote when it fails."""
    result = subprocess.run([str(part) for part in command], capture_output=True, text=True, **options)
    if result.returncode != 0:
        lines = (result.stdout + result.stderr).splitlines()
        fail('\n'.join([' '.join(map(str, command)), *lines[-40:]]))
    return result.stdout


def build(directory, target, options=None):
    """Builds a target in a directory, which is configured with the options unless there are none."""
    if options is not None:
        run('cmake', '-S', ROOT, '-B', directory, '-G', 'Ninja', *options)
    run('cmake', '--build', directory, '-j', JOBS, '--target', target)
    return directory


def build_fast(name, target, options=()):
    """A build at -O2 in build/NAME. Both scripts use the same ones."""
    flags = [f'-DCMAKE_{language}_FLAGS_RELEASE=-O2' for language in ('C', 'CXX')]
    off = [f'-DVIDEO_STREAM_{part}=OFF' for part in ('TESTS', 'TOOL')]
    return build(ROOT / 'build' / name, target, ['-DCMAKE_BUILD_TYPE=Release', *flags, *off, *options])


def build_host(target):
    return build_fast('measured-host', target)


def build_m33_fast(target):
    return build_fast('measured-m33', target, [f'--toolchain={ROOT}/cmake/m33.cmake', '-DVIDEO_STREAM_FIRMWARE=ON'])


def run_m33(image):
    """What an image prints, with a clock that counts instructions."""
    return run(ROOT / 'firmware' / 'run', image, env={**os.environ, 'QEMU_OPTIONS': '-icount shift=6'})


def table_text(heading, columns, rows):
    """One table: `rows` maps a name to its figures, None where there is none."""
    lines = [f'### {heading}', '', '| ' + ' | '.join(columns) + ' |', '|---' + '|---:' * (len(columns) - 1) + '|']
    for name, figures in rows.items():
        cells = ['-' if figure is None else f'{figure:,}' for figure in figures]
        lines.append('| ' + ' | '.join([name, *cells]) + ' |')
    return '\n'.join(lines) + '\n'


def parse_tables(text):
    """The figures by heading, row and column."""
    figures, heading, columns = {}, None, None
    for line in text.splitlines():
        if line.startswith('### '):
            heading, columns = line[4:], None
        elif line.startswith('| ') and heading is not None:
            cells = [cell.strip() for cell in line.strip('|').split('|')]
            if columns is None:
                columns = cells[1:]
                continue
            for column, cell in zip(columns, cells[1:]):
                figures[heading, cells[0], column] = None if cell == '-' else int(cell.replace(',', ''))
    return figures


def growth(published, measured, room):
    """What is said of the figures that do not keep to those published."""
    for key, figure in measured.items():
        name = ', '.join(key)
        if key not in published:
            yield f'not published: {name}: {figure}'
        elif figure is None or published[key] is None:
            if figure != published[key]:
                yield f'changed: {name}: {published[key]} -> {figure}'
        elif figure > published[key] * (1 + room) + (SLACK if room else 0):
            yield f'grew: {name}: {published[key]:,} -> {figure:,}'
    for key in published.keys() - measured.keys():
        yield f'no longer measured: {", ".join(key)}'


def publish(script, document, tables, write, room=0.0):
    """Writes the tables into the document, or compares and ends the program when something grew."""
    path = ROOT / 'docs' / document
    begin = BEGIN.format(script)
    text = path.read_text()
    if text.count(begin) != 1 or text.count(END) != 1:
        fail(f'{path}: the marks between which the tables stand are not there')
    head, rest = text.split(begin)
    old, tail = rest.split(END)
    new = '\n' + '\n'.join(tables) + '\n'
    if write:
        path.write_text(head + begin + new + END + tail)
        return
    published, measured = parse_tables(old), parse_tables(new)
    complaints = list(growth(published, measured, room))
    smaller = sum(1 for key, figure in measured.items() if figure is not None and figure < (published.get(key) or 0))
    for complaint in complaints:
        print(complaint)
    print(f'{len(measured)} figures measured, {len(complaints)} not as in {path.relative_to(ROOT)}, {smaller} smaller')
    if complaints:
        fail(f'If that is meant to be: {script} --write, and commit the table with its cause.')
