"""security_page.py SOURCE_ROOT: docs/security.md names a test for each claim, and each test that it names is there."""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
page = (root / 'docs' / 'security.md').read_text()

# What test programs and ctest call their tests.
names = set()
for path in [*root.glob('tests/**/*.cpp'), *root.glob('fuzz/*.cpp')]:
    for suite, name in re.findall(r'^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)', path.read_text(), re.MULTILINE):
        names.add(f'{suite}.{name}')
for path in root.glob('tests/**/CMakeLists.txt'):
    names.update(re.findall(r'add_test\(NAME (\w+\.\w+)', path.read_text()))
suites = {name.split('.')[0] for name in names}

faults = []
quoted = re.findall(r'`([^`\n]+)`', page)
for word in quoted:
    is_test = re.fullmatch(r'[A-Z]\w+\.[A-Z]\w+', word)
    is_suite = re.fullmatch(r'[A-Z][a-z]\w*', word) and word != 'Suite'
    if is_test and word != 'Suite.Name' and word not in names:
        faults.append(f'no test is called {word}')
    if is_suite and word not in suites:
        faults.append(f'no tests are called {word}')
    if word.startswith('script/') and not (root / word.split()[0]).exists():
        faults.append(f'there is no {word.split()[0]}')

# A claim is an item of a list.
evidence = re.compile(r'`([A-Z]\w+\.[A-Z]\w+|[A-Z][a-z]\w+|script/fuzz check)`')
items = re.findall(r'^- .*(?:\n  .*)*', page, re.MULTILINE)
for item in items:
    if not evidence.search(item):
        faults.append(f'no test stands behind: {item.splitlines()[0]}')
if len(items) < 20:
    faults.append(f'only {len(items)} claims were found: is the page laid out in another way?')

for fault in faults:
    print(f'docs/security.md: {fault}', file=sys.stderr)
sys.exit(1 if faults else 0)
