#!/usr/bin/env python3
"""Runs one scenario file (format: tests/e2e/README.md) against the tool.
  run_case.py BINARY memory|postgres CASE_FILE
"""
import codecs
import os
import re
import shlex
import subprocess
import sys
import tempfile

HEADER = re.compile(
    r'^(backends|labels|argv0|args|shell|status|stdin-from|file(?:-escaped)?|'
    r'(?:stdin|stdout|stderr)(?:-escaped|-re)?)(?:\[(\w+)\])?(?: ([^:]+))?:(?: (.*))?$')
ONE_LINE = {'backends', 'labels', 'argv0', 'args', 'shell', 'status', 'stdin-from'}
LOG_HEADER = re.compile(
    rb'\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\.\d{3} \|(.)\| [0-9a-f]{6}\| (.{7})\| ')


def encode(text):
    return text.encode('utf-8', 'surrogateescape')


def decode(data):
    return data.decode('utf-8', 'surrogateescape')


class Section:
    def __init__(self, key, backend, name, inline):
        self.key, self.backend, self.name, self.inline = key, backend, name, inline
        self.lines = []

    def text(self):
        """The content as written, without trailing empty lines."""
        return self.inline or '\n'.join(self.lines).rstrip('\n')

    def data(self):
        if self.key.endswith('-escaped'):
            return codecs.escape_decode(encode(self.inline or ''.join(self.lines)))[0]
        return encode(self.text() + '\n' if self.text() else '')


def parse(path, backend):
    """The runs of the file, each a list of sections; the first holds the globals."""
    runs, current = [[]], None
    with open(path, encoding='utf-8', errors='surrogateescape') as f:
        for line in f.read().split('\n'):
            m = HEADER.match(line)
            if m:
                current = Section(*m.groups())
                if current.key in ('args', 'shell'):
                    runs.append([])
                if current.backend in (None, backend):
                    runs[-1].append(current)
            elif current and current.key not in ONE_LINE and current.inline is None:
                current.lines.append(line)
            elif line.strip() and not line.startswith('#'):
                raise SystemExit('%s: stray line %r' % (path, line))
    return runs


def find(sections, *keys):
    return next((s for s in reversed(sections) if s.key in keys), None)


def compare(what, expected, actual, regex=False):
    if regex and re.fullmatch(expected, actual, re.S) or not regex and expected == actual:
        return True
    print('%s differs:\n  expected %r\n  actual   %r' % (what, expected, actual))
    return False


def substitute(text, variables):
    for name, value in variables.items():
        text = text.replace('$' + name, value)
    return text


def run_one(run, workdir, variables):
    head = run[0]
    if head.key == 'shell':
        done = subprocess.run(substitute(head.inline, variables), shell=True, cwd=workdir,
                              stderr=subprocess.STDOUT, stdout=subprocess.PIPE, timeout=300)
        return compare('shell step %r' % head.inline, 0, done.returncode) or print(done.stdout)
    argv0 = find(run, 'argv0')
    argv = [argv0.inline or '' if argv0 else 'qv_hivectl']
    argv += [substitute(word, variables) for word in shlex.split(head.inline)]
    stdin, stdin_from = find(run, 'stdin', 'stdin-escaped'), find(run, 'stdin-from')
    feed = {'input': stdin.data() if stdin else b''}
    if stdin_from:  # opened as it stands, so a directory too
        feed = {'stdin': os.open(os.path.join(workdir, stdin_from.inline), os.O_RDONLY)}
    try:
        done = subprocess.run(argv, executable=variables['BINARY'], cwd=workdir,
                              capture_output=True, timeout=60, **feed)
    finally:
        if stdin_from:
            os.close(feed['stdin'])
    status = find(run, 'status')
    ok = compare('exit status', int(status.inline) if status else 0, done.returncode)
    stderr = LOG_HEADER.sub(rb'[\1|\2] ', done.stderr)
    for stream, actual in (('stdout', done.stdout), ('stderr', stderr)):
        section = find(run, stream, stream + '-escaped', stream + '-re')
        regex = section is not None and section.key.endswith('-re')
        expected = section.text() if regex else decode(section.data()) if section else ''
        ok &= compare(stream, encode(substitute(expected, variables)), actual, regex)
    return ok or print('command line: %r' % argv)


def backend_variables(backend):
    """$BACKEND; on PostgreSQL the test registry is emptied first."""
    if backend == 'memory':
        return {'BACKEND': 'memory:'}
    spec, reset = os.environ.get('HIVECTL_PG_SPEC'), os.environ.get('HIVECTL_PG_RESET')
    if not spec or not reset or subprocess.run(reset, shell=True).returncode != 0:
        raise SystemExit('HIVECTL_PG_SPEC and HIVECTL_PG_RESET must name a running test server')
    return {'BACKEND': spec}


def main():
    binary, backend, case = sys.argv[1:]
    runs = parse(case, backend)
    with tempfile.TemporaryDirectory(prefix='hivectl-e2e-') as workdir:
        variables = backend_variables(backend)
        variables['BINARY'] = os.path.abspath(binary)
        for number, run in enumerate(runs):
            for s in run:
                if s.key.startswith('file'):
                    with open(os.path.join(workdir, s.name), 'wb') as f:
                        f.write(s.data())
            if number > 0 and not run_one(run, workdir, variables):
                print('run %d of %s failed' % (number, case))
                return 1
    return 0


if __name__ == '__main__':
    sys.exit(main())
