#!/usr/bin/env python3
"""Runs one end-to-end scenario file against the built qv_hivectl binary.

A scenario file is a list of header lines and sections; see tests/e2e/README.md.
Every run of the file starts the real binary as a user would, in a fresh
temporary directory, and compares standard output, standard error and exit
status exactly. The only normalisation is of diagnostic-log headers, whose
time and thread id vary: "DD/MM/YYYY HH:MM:SS.mmm |L| tttttt| MODULE| " becomes
"[L|MODULE] ".
"""
import argparse
import codecs
import difflib
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

HEADER = re.compile(
    r'^(backends|labels|settings|program|argv0|args|argv|stdin|stdin-escaped|status|'
    r'stdout|stdout-escaped|stdout-re|stderr|stderr-escaped|stderr-re|'
    r'file|file-escaped|expect-file|expect-file-escaped|expect-missing|shell)'
    r'(?:\[(memory|postgres)\])?(?: ([^:]+))?:(?: (.*))?$')
MULTILINE = {'argv', 'stdin', 'stdin-escaped', 'stdout', 'stdout-escaped',
             'stdout-re', 'stderr', 'stderr-escaped', 'stderr-re', 'file',
             'file-escaped', 'expect-file', 'expect-file-escaped'}
LOG_HEADER = re.compile(
    rb'\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\.\d{3} \|(.)\| [0-9a-f]{6}\| (.{7})\| ')


def unescape(text):
    return codecs.escape_decode(text.encode('utf-8', 'surrogateescape'))[0]


def literal(lines):
    while lines and lines[-1] == '':
        lines.pop()
    return ''.join(line + '\n' for line in lines).encode('utf-8', 'surrogateescape')


class Section:
    def __init__(self, key, backend, name, inline):
        self.key, self.backend, self.name, self.inline = key, backend, name, inline
        self.lines = []

    def data(self):
        if self.key.endswith('-escaped'):
            return unescape(''.join(self.lines) if self.inline is None else self.inline)
        if self.inline is not None:  # a one-line section
            return (self.inline + '\n').encode('utf-8', 'surrogateescape')
        return literal(list(self.lines))


def parse(path):
    """Returns (global sections, list of runs); a run is a list of sections."""
    with open(path, encoding='utf-8', errors='surrogateescape') as f:
        text = f.read().split('\n')
    sections, current = [], None
    for line in text:
        m = HEADER.match(line)
        if m:
            current = Section(*m.groups())
            sections.append(current)
        elif current is not None and current.key in MULTILINE and current.inline is None:
            current.lines.append(line)
        elif line.strip() == '' or line.startswith('#'):
            continue
        else:
            raise SystemExit('%s: stray line %r' % (path, line))
    globals_, runs = [], []
    for s in sections:
        if s.key in ('args', 'argv', 'shell'):
            runs.append([s])
        elif runs:
            runs[-1].append(s)
        else:
            globals_.append(s)
    return globals_, runs


def pick(sections, key, backend):
    """The backend-specific section wins over the plain one."""
    plain = [s for s in sections if s.key == key and s.backend is None]
    special = [s for s in sections if s.key == key and s.backend == backend]
    return (special or plain or [None])[-1]


def show(data):
    return [repr(line) for line in data.split(b'\n')]


def compare(what, expected, actual, regex=False):
    if regex:
        pattern = re.compile(expected, re.S)
        if pattern.fullmatch(actual):
            return True
        print('%s does not match %r:' % (what, expected))
        for line in show(actual):
            print('  ' + line)
        return False
    if expected == actual:
        return True
    print('%s differs (- expected, + actual):' % what)
    for line in difflib.unified_diff(show(expected), show(actual), lineterm='', n=2):
        print('  ' + line)
    return False


def substitute(text, env):
    for name, value in env.items():
        text = text.replace('$' + name, value)
    return text


def run_one(run, globals_, args, workdir, variables):
    sections = globals_ + run
    head = run[0]
    backend = args.backend
    for s in run:
        if s.key in ('file', 'file-escaped') and (s.backend in (None, backend)):
            with open(os.path.join(workdir, s.name), 'wb') as f:
                f.write(s.data())
    if head.key == 'shell':
        command = substitute(head.inline, variables)
        done = subprocess.run(command, shell=True, cwd=workdir, capture_output=True, timeout=300)
        if done.returncode != 0:
            print('shell step failed: %s\n%s%s' % (command, done.stdout.decode(), done.stderr.decode()))
            return False
        return True
    if head.key == 'args':
        argv = [substitute(a, variables) for a in shlex.split(head.inline or '')]
    else:
        argv = [substitute(unescape(line).decode('utf-8', 'surrogateescape'), variables)
                for line in head.lines if line != '']
    program = pick(sections, 'program', backend)
    executable = args.binary
    argv0 = 'qv_hivectl'
    if program is not None:
        link = os.path.join(workdir, program.inline)
        os.makedirs(os.path.dirname(link), exist_ok=True)
        if not os.path.lexists(link):
            os.symlink(args.binary, link)
        executable, argv0 = link, link
    override = pick(sections, 'argv0', backend)
    if override is not None:
        argv0 = unescape(override.inline or '').decode('utf-8', 'surrogateescape')
    stdin = pick(run, 'stdin', backend) or pick(run, 'stdin-escaped', backend)
    try:
        done = subprocess.run([argv0] + argv, executable=executable, cwd=workdir,
                              input=stdin.data() if stdin else b'',
                              capture_output=True, timeout=args.timeout)
    except subprocess.TimeoutExpired:
        print('timed out after %ss: %r' % (args.timeout, argv))
        return False
    stderr = LOG_HEADER.sub(lambda m: b'[' + m.group(1) + b'|' + m.group(2) + b'] ', done.stderr)
    ok = True
    status = pick(run, 'status', backend)
    expected_status = int(status.inline) if status else 0
    if done.returncode != expected_status:
        print('exit status %d, expected %d' % (done.returncode, expected_status))
        ok = False
    for stream, actual in (('stdout', done.stdout), ('stderr', stderr)):
        section = (pick(run, stream + '-re', backend) or pick(run, stream + '-escaped', backend)
                   or pick(run, stream, backend))
        if section is not None and section.key.endswith('-re'):
            pattern = ''.join(l + '\n' for l in section.lines).rstrip('\n') \
                if section.inline is None else section.inline
            ok &= compare(stream, substitute(pattern, variables).encode('utf-8', 'surrogateescape'),
                          actual, regex=True)
        else:
            expected = section.data() if section else b''
            ok &= compare(stream, substitute(expected.decode('utf-8', 'surrogateescape'),
                                             variables).encode('utf-8', 'surrogateescape'), actual)
    for s in run:
        if s.backend not in (None, backend):
            continue
        if s.key in ('expect-file', 'expect-file-escaped'):
            path = os.path.join(workdir, s.name)
            if not os.path.exists(path):
                print('file %s was not written' % s.name)
                ok = False
                continue
            with open(path, 'rb') as f:
                ok &= compare('file ' + s.name, s.data(), f.read())
        elif s.key == 'expect-missing' and os.path.exists(os.path.join(workdir, s.inline)):
            print('file %s exists but should not' % s.inline)
            ok = False
    if not ok:
        print('command line: %r' % ([argv0] + argv))
    return ok


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--binary', required=True)
    parser.add_argument('--backend', choices=('memory', 'postgres'), required=True)
    parser.add_argument('--timeout', type=float, default=60)
    parser.add_argument('--setting', default='')
    parser.add_argument('case')
    args = parser.parse_args()
    args.binary = os.path.abspath(args.binary)
    globals_, runs = parse(args.case)
    variables = {'BINARY': args.binary, 'SETTING': args.setting}
    if args.backend == 'memory':
        variables['BACKEND'] = 'memory:'
    else:
        spec = os.environ.get('HIVECTL_PG_SPEC')
        reset = os.environ.get('HIVECTL_PG_RESET')
        if not spec or not reset:
            print('HIVECTL_PG_SPEC and HIVECTL_PG_RESET must name the test server')
            return 1
        variables['BACKEND'] = spec
        for name in ('HIVECTL_PG_PSQL', 'HIVECTL_PG_ADMIN'):
            variables[name] = os.environ.get(name, '')
        if subprocess.run(reset, shell=True).returncode != 0:
            print('could not reset the test registry')
            return 1
    workdir = tempfile.mkdtemp(prefix='hivectl-e2e-')
    variables['TMP'] = workdir
    try:
        for s in globals_:
            if s.key in ('file', 'file-escaped') and s.backend in (None, args.backend):
                with open(os.path.join(workdir, s.name), 'wb') as f:
                    f.write(s.data())
        ok = True
        for number, run in enumerate(runs, 1):
            if run[0].backend not in (None, args.backend):
                continue
            if not run_one(run, globals_, args, workdir, variables):
                print('run %d of %s failed' % (number, args.case))
                ok = False
                break
        return 0 if ok else 1
    finally:
        shutil.rmtree(workdir, ignore_errors=True)


if __name__ == '__main__':
    sys.exit(main())
