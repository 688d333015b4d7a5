#!/usr/bin/env python3
# Writes a realistic registry CSV for the benchmarks: KEYS keys (default
# 20,000) of 3 to 5 levels with 10 values each; mostly strings of 5 to 200
# bytes, numbers, some binary values up to 2 KiB. Always the same file.
#   bench/registry_csv.py FILE [KEYS]
import base64, random, sys
random.seed(42)
WORDS = ['room', 'Conference', 'alpha', 'beta', 'gateway', 'codec', 'H.264', 'SIP',
         'user@example.org', 'a, b', 'say "hi"', 'caf\u00e9', '10.0.0.1', 'enabled']
def quote(s):
    if any(c in s for c in ',"\r\n'):
        return '"' + s.replace('"', '""') + '"'
    return s
def text(low, high):
    n = random.randint(low, high)
    out = ''
    while len(out) < n:
        out += random.choice(WORDS) + ' '
    return out[:n]
with open(sys.argv[1], 'w', encoding='utf-8', newline='') as f:
    f.write('KNAME,VNAME,TYPE,VALUE\n')
    for k in range(int(sys.argv[2]) if len(sys.argv) > 2 else 20000):
        depth = 3 + k % 3
        parts = ['Group%d' % (k % 20), 'Section%d' % (k % 400), 'Item%d' % k,
                 'Detail%d' % (k % 7), 'Leaf%d' % (k % 5)][:depth]
        key = quote('\\'.join(parts))
        for v in range(10):
            name = quote('Value %d' % v)
            r = random.random()
            if r < 0.70:
                row = 'str,' + quote(text(5, 200))
            elif r < 0.85:
                row = 'i32,%d' % random.randint(0, 2**32 - 1)
            elif r < 0.92:
                row = 'i64,%d' % random.randint(0, 2**64 - 1)
            elif r < 0.96:
                data = bytes(random.randint(0, 255) for _ in range(random.randint(1, 2048)))
                row = 'b64,' + base64.b64encode(data + b'\x01').decode()
            else:
                row = 'bin,' + quote(text(1, 2048))
            f.write('%s,%s,%s\n' % (key, name, row))
