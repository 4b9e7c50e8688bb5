#!/usr/bin/env python3
"""Checks that includes point upward in the layer table below: a file may include its own family and families of
lower layers, never one of the same or a higher layer. Run from the project's root; exit status 1 on a breach."""
import pathlib
import re
import sys

LAYERS = {'base': 0, 'log': 1, 'text': 2, 'io': 2, 'frame': 3, 'config': 4, 'identity': 4, 'fs': 5,
          'containers': 6, 'crypto': 6, 'net': 7, 'os': 7, 'clients': 7}
# families of one layer that may include another of the same layer
SIDEWAYS = {('io', 'text'), ('crypto', 'containers')}
# the files that tie everything together; nobody includes anything of theirs
ROOF = {'src/log/log_settings.cc', 'src/frame/startup.cc', 'src/frame/common_args.cc'}
# public headers by family; a family's header not listed here is found by the sources that implement it
HEADERS = {
    'log': ['log.h', 'log_file.h'],
    'text': ['values.h', 'text.h', 'path.h', 'encoding.h', 'random.h', 'wide.h'],
    'io': ['io.h'],
    'frame': ['frame.h', 'alloc.h'],
    'config': ['inifile.h', 'options.h'],
    'identity': ['serialize.h', 'uid.h', 'digest.h', 'bloom_filter.h'],
    'fs': ['file.h', 'id_file.h', 'dir.h'],
    'containers': ['preallocator.h', 'hash_tree.h', 'set.h', 'array.h', 'list.h', 'callbacks.h', 'merge_sort.h'],
    'crypto': ['magic.h', 'blowfish.h', 'cipher.h', 'crypt_stream.h', 'password.h'],
    'net': ['net.h', 'iprange.h', 'interface.h'],
    'os': ['os.h', 'process.h'],
    'clients': ['http.h', 'storage_http.h', 'cloud_config.h', 'json.h', 'sqlite.h'],
}
FREE = {'export.h', 'revision.h'}
FAMILY_OF = {header: family for family, headers in HEADERS.items() for header in headers}


def family_of_include(line):
    quoted = re.match(r'\s*#\s*include\s+"([a-z]+)/', line)
    if quoted:
        return quoted.group(1)
    public = re.match(r'\s*#\s*include\s+<vex/([^>]+)>', line)
    if public and public.group(1) not in FREE:
        return FAMILY_OF.get(public.group(1), '?' + public.group(1))
    return None


def may_include(own, other):
    if own == other or (own, other) in SIDEWAYS:
        return True
    return other in LAYERS and LAYERS[other] < LAYERS[own]


def main():
    bad = []
    files = sorted(pathlib.Path('src').rglob('*.cc')) + sorted(pathlib.Path('src').rglob('*.h'))
    files += sorted(pathlib.Path('include/vex').glob('*.h'))
    for path in files:
        name = path.as_posix()
        own = path.parts[1] if path.parts[0] == 'src' else FAMILY_OF.get(path.name)
        if name in ROOF or name in ('include/vex/vex.h',) or path.name in FREE:
            continue
        if own not in LAYERS:
            bad.append(f'{name}: family is not in the layer table of scripts/check_layers.py')
            continue
        for number, line in enumerate(path.read_text(encoding='utf-8').split('\n'), 1):
            other = family_of_include(line)
            if other and not may_include(own, other):
                bad.append(f'{name}:{number}: {own} (layer {LAYERS[own]}) includes {other}: {line.strip()}')
    print('\n'.join(bad) if bad else f'layers: {len(files)} files clean')
    return 1 if bad else 0


if __name__ == '__main__':
    sys.exit(main())
