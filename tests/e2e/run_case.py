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


class Section:
    def __init__(self, key, backend, name, inline):
        self.key, self.backend, self.name, self.inline = key, backend, name, inline
        self.lines = []

    def text(self):
        """The content as written, without trailing empty lines."""
        return self.inline or '\n'.join(self.lines).rstrip('\n')

    def data(self):
        if self.key.endswith('-escaped'):
            return codecs.escape_decode(self.inline or ''.join(self.lines))[0]
        return (self.text() + '\n' if self.text() else '').encode()


def parse(path, backend):
    """The runs of the file, each a list of sections; the first holds the globals."""
    runs, current = [[]], None
    for line in open(path, encoding='utf-8').read().split('\n'):
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


def run_one(run, workdir, variables):
    """Runs the tool or a shell step; $NAME in its words is the variable NAME."""
    head = run[0]

    def substitute(text):
        for name, value in variables.items():
            text = text.replace('$' + name, value)
        return text
    if head.key == 'shell':
        done = subprocess.run(substitute(head.inline), shell=True, cwd=workdir, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=300)
        return compare('shell step %r' % head.inline, 0, done.returncode) or print(done.stdout)
    argv0 = find(run, 'argv0')
    argv = [argv0.inline or '' if argv0 else 'qv_hivectl']
    argv += [substitute(word) for word in shlex.split(head.inline)]
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
        if section and section.key.endswith('-re'):
            ok &= compare(stream, section.text().encode(), actual, True)
        else:
            ok &= compare(stream, section.data() if section else b'', actual)
    return ok or print('command line: %r' % argv)


def main():
    binary, backend, case = sys.argv[1:]
    runs = parse(case, backend)
    variables = {'BACKEND': 'memory:', 'BINARY': os.path.abspath(binary)}
    if backend == 'postgres':  # its test registry is emptied first
        spec, reset = os.environ.get('HIVECTL_PG_SPEC'), os.environ.get('HIVECTL_PG_RESET')
        if not spec or not reset or subprocess.run(reset, shell=True).returncode:
            raise SystemExit('HIVECTL_PG_SPEC and HIVECTL_PG_RESET must name a running test server')
        variables['BACKEND'] = spec
    with tempfile.TemporaryDirectory(prefix='hivectl-e2e-') as workdir:
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
