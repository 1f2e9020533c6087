"""The most stack that a function can take: the frames on the deepest way through the calls, which the compiler writes
down with -fcallgraph-info=su."""
import re

import measured

NODE = re.compile(r'node: \{ title: "([^"]+)" label: "(.*?)"(.*)\}')
EDGE = re.compile(r'edge: \{ sourcename: "([^"]+)" targetname: "([^"]+)"(?: label: "([^"]*)")?')
FRAME = re.compile(r'\\n(\d+) bytes \((\w+)')
# The compiler leaves out the registers that a function with "..." stores for its list.
VARIADIC, VARIADIC_DEPTH = ('kelvra_rtc_log', 'zeb_find_rb_node'), 16
INDIRECT = '__indirect_call'

# Where a call through a pointer goes, by the caller. Nobody: to the device or the application, whose stack comes on
# top.
NOBODY = r'$^'
POINTERS = [
    (r'empty_ring|empty_slot', r'release_payload|^webrtc_video_packet_reset$'),
    (r'append_depacketized|^video_frame_regroup_pkts$', r'^depacketizer_h26[45]_packet$'),
    (r'zeb_fini_typed_obj', r'dynamic_array_fini'),
    (r'zeb_find_rb_node|zeb_rb_insert_node', r'webrtc_video_frame_cmp'),
    (r'zeb_rb_traverse_ldr', r'webrtc_video_frame_walk_impl'),
    (r'kelvra_rtc_log', NOBODY),
    (r'KelvraBcmStat_|bcm_stat_', r'delay_loss_estimator\.cpp:_ZN12_GLOBAL__N_1'),
    (r'nal_|/nal\.cpp:|unit_chain|annexb|parameter_sets',
     r'/nal\.cpp:_ZN12_GLOBAL__N_1\d+h26|depacketizer_h26[45]\.cpp:_ZN12_GLOBAL__N_1'),
    (r'frame_output|feedback', NOBODY),
]
NO_RETURN = 'abort'


# Arithmetic that the core has no instructions for: the deepest of the compiler's helpers, a division of 64 bits, takes
# 52.
HELPER = r'^__aeabi_'
HELPER_DEPTH = 64


class StackBounds:
    """`library` has the depths of functions that are compiled elsewhere."""

    def __init__(self, directory, library):
        self.frames, self.calls, self.library, self.bounds = {}, {}, library, {}
        paths = [path for part in ('rtc', 'platform', 'client') for path in (directory / part).rglob('*.ci')]
        for path in paths:
            self._read(path.read_text())

    def _read(self, text):
        for title, label, _ in NODE.findall(text):
            frame = FRAME.search(label)
            if frame:
                if frame[2] != 'static':
                    measured.fail(f'{title}: its frame has no fixed size')
                self.frames[title] = int(frame[1]) + (VARIADIC_DEPTH if title in VARIADIC else 0), label
        for caller, callee, place in EDGE.findall(text):
            self.calls.setdefault(caller, set()).add((callee, place))

    def symbol(self, name):
        """The symbol of a function, of C or of C++."""
        mangled = f'_Z{len(name)}{name}'
        found = [title for title in self.frames if title == name or title.startswith(mangled)]
        return found[0] if len(found) == 1 else measured.fail(f'{name}: {len(found)} functions have that name')

    def _callees(self, caller):
        for callee, place in self.calls.get(caller, ()):
            if callee != INDIRECT:
                yield callee
                continue
            targets = [there for here, there in POINTERS if re.search(here, caller)]
            if not targets:
                measured.fail(f'{place}: {caller} calls through a pointer; say in script/stack_bound.py where to')
            yield from (title for title in self.frames if re.search(targets[0], title))

    def bound(self, function, within='', above=()):
        """Bytes. Only what is defined below the directory `within` counts."""
        key = function, within
        if function in self.library or function == NO_RETURN:
            return 0 if within or function == NO_RETURN else self.library[function]
        if re.match(HELPER, function):
            return 0 if within else HELPER_DEPTH
        if function not in self.frames:
            measured.fail(f'{function}: its stack is not known; measure it in bench/cost/stack_depth.cpp')
        if within and f'/{within}' not in self.frames[function][1]:
            return 0
        if function in above:
            measured.fail(f'{function} calls itself')
        if key not in self.bounds:
            path = (*above, function)
            deepest = max((self.bound(callee, within, path) for callee in self._callees(function)), default=0)
            self.bounds[key] = self.frames[function][0] + deepest
        return self.bounds[key]
