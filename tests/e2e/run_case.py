#!/usr/bin/env python3
"""Runs one end-to-end scenario file (format: tests/e2e/README.md) against the
built qv_hivectl binary and compares standard output, standard error and exit
status exactly, after shortening diagnostic-log headers to "[L|MODULE] ".

  run_case.py BINARY memory|postgres SETTING CASE_FILE
"""
import codecs
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

HEADER = re.compile(
    r'^(backends|labels|settings|argv0|args|argv|shell|status|expect-file(?:-escaped)?|'
    r'file(?:-escaped)?|(?:stdin|stdout|stderr)(?:-escaped|-re)?)(?:\[(\w+)\])?(?: ([^:]+))?:'
    r'(?: (.*))?$')
ONE_LINE = {'backends', 'labels', 'settings', 'argv0', 'args', 'shell', 'status'}
LOG_HEADER = re.compile(
    rb'\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\.\d{3} \|(.)\| [0-9a-f]{6}\| (.{7})\| ')


def encode(text):
    return text.encode('utf-8', 'surrogateescape')


def unescape(text):
    return codecs.escape_decode(encode(text))[0]


class Section:
    def __init__(self, key, backend, name, inline):
        self.key, self.backend, self.name, self.inline = key, backend, name, inline
        self.lines = []

    def text(self):
        """The content as written, without trailing empty lines."""
        if self.inline is not None:
            return self.inline
        lines = list(self.lines)
        while lines and lines[-1] == '':
            lines.pop()
        return '\n'.join(lines)

    def data(self):
        if self.key.endswith('-escaped'):
            return unescape(''.join(self.lines) if self.inline is None else self.inline)
        text = self.text()
        return encode(text + '\n' if text or self.inline is not None else '')


def parse(path, backend):
    """Returns a list of runs, each a list of sections; the first holds the globals.
    A section tagged with another backend, as in "stdout[postgres]:", is left out."""
    with open(path, encoding='utf-8', errors='surrogateescape') as f:
        text = f.read().split('\n')
    runs, current = [[]], None
    for line in text:
        m = HEADER.match(line)
        if m:
            current = Section(*m.groups())
            if current.key in ('args', 'argv', 'shell'):
                runs.append([])
            if current.backend in (None, backend):
                runs[-1].append(current)
        elif current is not None and current.key not in ONE_LINE and current.inline is None:
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


def run_one(run, globals_, binary, workdir, variables):
    head = run[0]
    if head.key == 'shell':
        command = substitute(head.inline, variables)
        done = subprocess.run(command, shell=True, cwd=workdir, capture_output=True, timeout=300)
        if done.returncode != 0:
            print('shell step failed: %s\n%s%s' % (command, done.stdout.decode(), done.stderr.decode()))
        return done.returncode == 0
    if head.key == 'args':
        argv = [substitute(a, variables) for a in shlex.split(head.inline or '')]
    else:
        argv = [substitute(unescape(line).decode('utf-8', 'surrogateescape'), variables)
                for line in head.lines if line != '']
    argv0 = find(globals_ + run, 'argv0')
    argv0 = unescape(argv0.inline or '').decode('utf-8', 'surrogateescape') if argv0 else 'qv_hivectl'
    stdin = find(run, 'stdin', 'stdin-escaped')
    done = subprocess.run([argv0] + argv, executable=binary, cwd=workdir,
                          input=stdin.data() if stdin else b'', capture_output=True, timeout=60)
    stderr = LOG_HEADER.sub(lambda m: b'[' + m.group(1) + b'|' + m.group(2) + b'] ', done.stderr)
    status = find(run, 'status')
    expected_status = int(status.inline) if status else 0
    ok = done.returncode == expected_status
    if not ok:
        print('exit status %d, expected %d' % (done.returncode, expected_status))
    for stream, actual in (('stdout', done.stdout), ('stderr', stderr)):
        section = find(run, stream, stream + '-escaped', stream + '-re')
        regex = section is not None and section.key.endswith('-re')
        expected = section.text() if regex else section.data() if section else b''
        expected = substitute(expected if regex else expected.decode('utf-8', 'surrogateescape'),
                              variables)
        ok &= compare(stream, encode(expected), actual, regex)
    for s in run:
        if s.key.startswith('expect-file'):
            path = os.path.join(workdir, s.name)
            written = open(path, 'rb').read() if os.path.exists(path) else None
            ok &= compare('file ' + s.name, s.data(), written)
    if not ok:
        print('command line: %r' % ([argv0] + argv))
    return ok


def backend_variables(backend):
    """$BACKEND and the server's variables; resets the test registry on PostgreSQL."""
    if backend == 'memory':
        return {'BACKEND': 'memory:'}
    spec, reset = os.environ.get('HIVECTL_PG_SPEC'), os.environ.get('HIVECTL_PG_RESET')
    if not spec or not reset:
        raise SystemExit('HIVECTL_PG_SPEC and HIVECTL_PG_RESET must name the test server')
    if subprocess.run(reset, shell=True).returncode != 0:
        raise SystemExit('could not reset the test registry')
    variables = {'BACKEND': spec}
    for name in ('HIVECTL_PG_PSQL', 'HIVECTL_PG_ADMIN'):
        variables[name] = os.environ.get(name, '')
    return variables


def main():
    binary, backend, setting, case = sys.argv[1:]
    binary = os.path.abspath(binary)
    runs = parse(case, backend)
    workdir = tempfile.mkdtemp(prefix='hivectl-e2e-')
    variables = backend_variables(backend)
    variables.update(BINARY=binary, SETTING=setting, TMP=workdir)
    try:
        for number, run in enumerate(runs):
            for s in run:
                if s.key.startswith('file'):
                    with open(os.path.join(workdir, s.name), 'wb') as f:
                        f.write(s.data())
            if number > 0 and not run_one(run, runs[0], binary, workdir, variables):
                print('run %d of %s failed' % (number, case))
                return 1
        return 0
    finally:
        shutil.rmtree(workdir, ignore_errors=True)


if __name__ == '__main__':
    sys.exit(main())
