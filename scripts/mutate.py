#!/usr/bin/env python3
"""Mutation check: how many single-point faults of the module does the suite catch?

Each mutation in scripts/mutations.txt changes one spot of module or library
code. The check copies the working tree into a scratch directory, builds it
once (Debug, no sanitizers, no benchmarks) and makes sure every test passes;
then, one mutation at a time, it edits the scratch copy, rebuilds
incrementally, runs ctest until the first failure and puts the file back.

  scripts/mutate.py                  every mutation
  scripts/mutate.py --only E01,G03   a subset, to re-check survivors
  scripts/mutate.py --list           the mutations and where they apply, without running anything

A mutation the suite fails on is "caught"; one it passes is "survived"; one
that does not build is "invalid" and does not count. One line per mutation,
then the score (caught / (caught + survived)).
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
MUTATIONS = os.path.join(ROOT, 'scripts', 'mutations.txt')


class Mutation:
    def __init__(self, fields, line):
        self.id = fields.get('id')
        self.file = fields.get('file')
        self.what = fields.get('what', '')
        self.edits = fields['edits']
        self.line = line
        if not self.id or not self.file or not self.edits:
            sys.exit(f'{MUTATIONS}:{line}: a mutation needs id, file and at least one from/to pair')


def load_mutations():
    """Blocks of 'key: value' lines separated by blank lines; '#' starts a comment line.
    Keys: id, file, what, and one or more from/to pairs (to may be empty: the text is deleted)."""
    mutations, fields, start = [], {'edits': []}, 0
    pending_from = None
    with open(MUTATIONS, encoding='utf-8') as source:
        lines = source.read().split('\n')
    for number, raw in enumerate(lines + [''], 1):
        if raw.startswith('#'):
            continue
        if not raw.strip():
            if pending_from is not None:
                sys.exit(f'{MUTATIONS}:{number}: "from" without "to"')
            if len(fields) > 1 or fields['edits']:
                mutations.append(Mutation(fields, start))
            fields, start = {'edits': []}, 0
            continue
        key, _, value = raw.partition(':')
        key, value = key.strip(), value.strip()
        start = start or number
        if key == 'from':
            pending_from = value
        elif key == 'to':
            if pending_from is None:
                sys.exit(f'{MUTATIONS}:{number}: "to" without "from"')
            fields['edits'].append((pending_from, value))
            pending_from = None
        elif key in ('id', 'file', 'what'):
            fields[key] = value
        else:
            sys.exit(f'{MUTATIONS}:{number}: unknown key {key!r}')
    ids = [m.id for m in mutations]
    duplicates = {i for i in ids if ids.count(i) > 1}
    if duplicates:
        sys.exit(f'{MUTATIONS}: duplicate ids {sorted(duplicates)}')
    return mutations


def pattern(text):
    """The text to find, with any run of blanks matching any run of blanks, so
    that an anchor survives reformatting."""
    parts = [re.escape(part) for part in re.split(r'\s+', text.strip())]
    return re.compile(r'\s+'.join(parts))


def apply(mutation, content):
    """Returns the mutated content and the line of the first edit."""
    first_line = None
    for old, new in mutation.edits:
        matches = list(pattern(old).finditer(content))
        if len(matches) != 1:
            raise ValueError(f'"{old}" found {len(matches)} times in {mutation.file}, needs exactly one')
        match = matches[0]
        line = content.count('\n', 0, match.start()) + 1
        first_line = first_line or line
        content = content[:match.start()] + new + content[match.end():]
    return content, first_line


def tracked_files():
    listed = subprocess.run(['git', 'ls-files', '-z', '--cached', '--others', '--exclude-standard'], cwd=ROOT,
                            check=True, capture_output=True).stdout.decode().split('\0')
    return [f for f in listed if f and os.path.isfile(os.path.join(ROOT, f))]


def sync_scratch(source_dir):
    """Copies the working tree into the scratch copy; unchanged files keep their
    time stamps so the build there stays incremental."""
    wanted = set(tracked_files())
    for name in wanted:
        src, dst = os.path.join(ROOT, name), os.path.join(source_dir, name)
        with open(src, 'rb') as handle:
            data = handle.read()
        if os.path.exists(dst):
            with open(dst, 'rb') as handle:
                if handle.read() == data:
                    continue
        os.makedirs(os.path.dirname(dst), exist_ok=True)
        with open(dst, 'wb') as handle:
            handle.write(data)
        shutil.copymode(src, dst)
    for directory, _, files in os.walk(source_dir):
        for name in files:
            path = os.path.relpath(os.path.join(directory, name), source_dir)
            if path not in wanted:
                os.remove(os.path.join(directory, name))


def run(command, cwd=None, timeout=None):
    return subprocess.run(command, cwd=cwd, capture_output=True, text=True, timeout=timeout)


def build(build_dir, jobs):
    return run(['cmake', '--build', build_dir, '-j', str(jobs)]).returncode == 0


# ctest's closing summary: "The following tests FAILED:" then "<n> - <name> (<why>)".
FAILED_TEST = re.compile(r'^\s*\d+ - (\S+).* \(([^)]*)\)\s*$', re.M)
# A run stopped on its first failure may print no summary: its progress line.
# Parameterised names go on with "  # GetParam() = ...".
FAILED_PROGRESS = re.compile(r'Test +#\d+: (\S+).*?\*\*\*(.+?) +[\d.]+ sec', re.M)


def run_tests(build_dir, jobs):
    """Runs ctest until the first failure. Returns the first failing test, or None."""
    result = run(['ctest', '--test-dir', build_dir, '--stop-on-failure', '--timeout', '60', '-j', str(jobs)])
    if result.returncode == 0:
        return None
    match = FAILED_TEST.search(result.stdout) or FAILED_PROGRESS.search(result.stdout)
    return f'{match.group(1)}, {match.group(2)}' if match else 'ctest failed'


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--only', help='comma-separated mutation ids to run')
    parser.add_argument('--list', action='store_true', help='list the mutations and exit')
    parser.add_argument('--dir', default=os.path.join(ROOT, 'build', 'mutate'), help='scratch directory')
    parser.add_argument('--jobs', type=int, default=os.cpu_count() or 2)
    arguments = parser.parse_args()

    mutations = load_mutations()
    if arguments.only:
        wanted = arguments.only.split(',')
        unknown = [i for i in wanted if i not in {m.id for m in mutations}]
        if unknown:
            sys.exit(f'unknown mutation ids: {",".join(unknown)}')
        mutations = [m for m in mutations if m.id in wanted]
    if arguments.list:
        for m in mutations:
            with open(os.path.join(ROOT, m.file), encoding='utf-8') as handle:
                try:
                    _, line = apply(m, handle.read())
                    where = f'{m.file}:{line}'
                except ValueError as error:
                    where = f'{m.file}: BAD ANCHOR ({error})'
            print(f'{m.id:5} {where} {m.what}')
        return 0

    source_dir = os.path.join(arguments.dir, 'src')
    build_dir = os.path.join(arguments.dir, 'build')
    os.makedirs(source_dir, exist_ok=True)
    sync_scratch(source_dir)
    # Ninja when present: each mutation relinks every suite.
    options = ['-DCMAKE_BUILD_TYPE=Debug', '-DVORN_SANITIZE=OFF', '-DVORN_TESTS=ON',
               '-DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON']
    if shutil.which('ninja'):
        options += ['-G', 'Ninja']
    cache = os.path.join(build_dir, 'CMakeCache.txt')
    if os.path.exists(cache) and ('-G' in options) != ('CMAKE_GENERATOR:INTERNAL=Ninja' in open(cache).read()):
        shutil.rmtree(build_dir)
    configure = run(['cmake', '-S', source_dir, '-B', build_dir] + options)
    if configure.returncode != 0:
        sys.exit('cmake configure failed:\n' + configure.stderr)
    if not build(build_dir, arguments.jobs):
        sys.exit(f'the unmutated scratch copy does not build (see cmake --build {build_dir})')
    failing = run_tests(build_dir, arguments.jobs)
    if failing:
        sys.exit(f'the unmutated scratch copy fails {failing}: fix the suite first')

    caught = survived = invalid = 0
    survivors = []
    started = time.time()
    for m in mutations:
        path = os.path.join(source_dir, m.file)
        with open(path, encoding='utf-8') as handle:
            original = handle.read()
        try:
            mutated, line = apply(m, original)
        except ValueError as error:
            print(f'{m.id:5} {m.file}: {m.what}: invalid ({error})', flush=True)
            invalid += 1
            continue
        try:
            with open(path, 'w', encoding='utf-8') as handle:
                handle.write(mutated)
            if not build(build_dir, arguments.jobs):
                outcome = 'invalid (does not build)'
                invalid += 1
            else:
                failing = run_tests(build_dir, arguments.jobs)
                if failing:
                    outcome = f'caught ({failing})'
                    caught += 1
                else:
                    outcome = 'SURVIVED'
                    survived += 1
                    survivors.append(m.id)
        finally:
            with open(path, 'w', encoding='utf-8') as handle:
                handle.write(original)
        print(f'{m.id:5} {m.file}:{line} {m.what}: {outcome}', flush=True)

    # Leave the scratch build matching the sources.
    build(build_dir, arguments.jobs)
    counted = caught + survived
    score = 100.0 * caught / counted if counted else 0.0
    minutes = (time.time() - started) / 60
    print(f'score: {caught}/{counted} caught = {score:.1f} % ({invalid} invalid, {minutes:.0f} min)')
    if survivors:
        print('survivors: ' + ','.join(survivors))
    return 0


if __name__ == '__main__':
    sys.exit(main())
