#!/usr/bin/env python3
"""A second reader of vnkx and vnk5, written from FORMAT.md alone and sharing no code with the
engine: it reads the trailer, the catalogue (item by item or column by column) and every block
of a plain archive (no cipher),
decodes the methods 1, 2, 3, 5, 6 and 11 and both filters, and checks every CRC-32 and every
fork's SHA-256. The engine's tests run it on archives the engine wrote, so that the layout
description stays enough to write a reader. Prints "ok: ..." and exits 0, or fails with the
first thing that does not match.

usage: read_layout.py ARCHIVE
"""
import sys, struct, zlib, hashlib, subprocess, lzma, bz2
data = open(sys.argv[1], 'rb').read()
tr = data[-88:]
assert tr[:4] == b'VNKT' and tr[84:] == b'VNKE', 'trailer magic'
assert zlib.crc32(tr[:80]) == struct.unpack_from('<I', tr, 80)[0], 'trailer crc'
version, flags, C, S, ro, rs, L = struct.unpack_from('<HHQQQQQ', tr, 4)
start = len(data) - L
a = data[start:]
assert a[:8] in (b'VNKX\x1a\r\n\x00', b'VNK5\x1a\r\n\x00'), 'signature'
assert struct.unpack_from('<H', a, 8)[0] == version
region = a[C:C + S]
assert hashlib.sha256(region).digest() == tr[48:80], 'catalogue hash'
assert region[:4] == b'VCAT'
K = struct.unpack_from('<I', region, 4)[0]
p = 8 + 49 * K
ccipher = region[p]; cslot = struct.unpack_from('<I', region, p + 1)[0]
bodysize, P = struct.unpack_from('<QQ', region, p + 5)
assert ccipher == 0, 'enciphered catalogue not handled here'
stored = region[p + 21:]
assert len(stored) == P, 'rest of region'
def unzstd(b, size):
    out = subprocess.run(['zstd', '-d', '-c'], input=b, capture_output=True, check=True).stdout
    assert len(out) == size, ('zstd size', len(out), size)
    return out
body = unzstd(stored, bodysize)
pos = 0
def take(fmt):
    global pos
    v = struct.unpack_from(fmt, body, pos); pos += struct.calcsize(fmt); return v
def text():
    (n,) = take('<I'); global pos; s = body[pos:pos + n]; pos += n; return s.decode()
(hc,) = take('<B')
if hc: text()
(B,) = take('<I')
blocks = [take('<QQQBBBBIQI') for _ in range(B)]
def undo_words(t, size):
    w1 = t[0]; w2 = struct.unpack_from('<H', t, 1)[0]; q = 3; words = []
    for _ in range(w1 + w2):
        e = t.index(b'\n', q); w = t[q:e]; assert 1 <= len(w) <= 64; words.append(w); q = e + 1
    one, two = words[:w1], words[w1:]
    out = bytearray(); n = len(t)
    while q < n:
        c = t[q]
        if c < 0x80: out.append(c); q += 1
        elif c < 0xC0: out += one[c - 0x80]; q += 1
        elif c < 0xFF: out += two[256 * (c - 0xC0) + t[q + 1]]; q += 2
        else: assert t[q + 1] >= 0x80; out.append(t[q + 1]); q += 2
    assert len(out) == size
    return bytes(out)
def unxz(b, size):
    out = lzma.decompress(b, format=lzma.FORMAT_XZ)
    assert len(out) == size; return out
def x86_undo(b):
    b = bytearray(b); i = 0
    while i + 5 <= len(b):
        if b[i] == 0xE8:
            v = (struct.unpack_from('<I', b, i + 1)[0] - (i + 5)) & 0xFFFFFFFF
            struct.pack_into('<I', b, i + 1, v); i += 5
        else: i += 1
    return bytes(b)
unpacked = []
methods = {}
filters = set()
forms = set()
for (off, ssize, usize, method, filt, cipher, _, slot, seal, crc) in blocks:
    h = a[off:off + 40]
    assert h[:4] == b'VBLK'
    hm, hf, hc2, _, hslot, hseal, hu, hs, hcrc = struct.unpack_from('<BBBBIQQQI', h, 4)
    assert (hm, hf, hc2, hu, hs, hcrc) == (method, filt, cipher, usize, ssize, crc), 'header vs catalogue'
    payload = a[off + 40:off + 40 + ssize]
    assert zlib.crc32(payload) == crc, 'block crc'
    assert cipher == 0
    if method == 6: u = payload
    elif method == 5: u = unzstd(payload, usize)
    elif method == 3: u = unxz(payload, usize)
    elif method == 1: u = zlib.decompress(payload, -15); assert len(u) == usize
    elif method == 2: u = bz2.decompress(payload)
    elif method == 11:
        form = payload[0]; forms.add(form); T = struct.unpack_from('<Q', payload, 1)[0]; s = payload[9:]
        t = unzstd(s, T) if form & 2 else unxz(s, T)
        u = undo_words(t, usize) if form & 1 else t
    else: raise SystemExit('method %d not handled here' % method)
    filters.add(filt)
    if filt == 1: u = x86_undo(u)
    elif filt == 2:
        u = bytearray(u)
        for i in range(4, len(u)): u[i] = (u[i] + u[i - 4]) & 0xFF
        u = bytes(u)
    assert len(u) == usize
    unpacked.append(u); methods[method] = methods.get(method, 0) + 1
(N,) = take('<I')
def varint():
    global pos
    v = 0
    for i in range(10):
        b = body[pos]; pos += 1
        v |= (b & 0x7F) << (7 * i)
        if not b & 0x80:
            assert v < 1 << 64, 'varint beyond 64 bits'
            return v
    raise SystemExit('varint longer than 10 bytes')
def step(b):
    z = varint()
    return (b + ((z >> 1) ^ (-(z & 1) & 0xFFFFFFFFFFFFFFFF))) & 0xFFFFFFFFFFFFFFFF
def vtext():
    global pos
    n = varint(); s = body[pos:pos + n]; pos += n; assert len(s) == n; return s
def hash32():
    global pos
    h = body[pos:pos + 32]; pos += 32; return h
def rows():
    """Items one after another: (kind, path, [(fork kind, size, extents, hash)])."""
    items = []
    for _ in range(N):
        kind, fl = take('<BB'); path = text()
        if fl & 2: text()
        size, mtime, mode = take('<QQI')
        if fl & 1: text()
        if kind == 2: text()
        (F,) = take('<B')
        forks = []
        for _ in range(F):
            fk, fsize = take('<BQ'); (E,) = take('<I')
            extents = [take('<IQQ') for _ in range(E)]
            forks.append((fk, fsize, extents, hash32()))
        items.append((kind, path, forks))
    return items
def columns():
    """Every field of every item, one field after the other."""
    kinds = [take('<B')[0] for _ in range(N)]
    fls = [take('<B')[0] for _ in range(N)]
    paths = []; prev = b''
    for _ in range(N):
        shared = varint(); assert shared <= len(prev), 'shared prefix'
        prev = prev[:shared] + vtext(); paths.append(prev.decode())
    for fl in fls:
        if fl & 2: vtext()
    sizes = [varint() for _ in range(N)]
    t = 0
    for _ in range(N): t = step(t)
    modes = [varint() for _ in range(N)]
    assert all(m <= 0xFFFFFFFF for m in modes)
    for fl in fls:
        if fl & 1: vtext()
    for k in kinds:
        if k == 2: vtext()
    counts = [take('<B')[0] for _ in range(N)]
    owner = [i for i in range(N) for _ in range(counts[i])]
    fkinds = [take('<B')[0] for _ in owner]
    fsizes = [step(sizes[i] if fk == 0 else 0) for i, fk in zip(owner, fkinds)]
    ecounts = [varint() for _ in owner]
    extents = []; prevblock = 0; ends = {}
    for fsize, E in zip(fsizes, ecounts):
        ext = []; left = fsize
        for j in range(E):
            bi = step(prevblock); o = step(ends.get(bi, 0))
            ln = varint() if j + 1 < E else left
            assert ln <= left, 'extent length'
            left -= ln; ext.append((bi, o, ln)); prevblock = bi; ends[bi] = o + ln
        extents.append(ext)
    refs = [varint() for _ in owner]
    distinct = []
    order = []
    for r in refs:
        if r == 0: order.append(len(distinct)); distinct.append(None)
        else: assert r <= len(distinct), 'hash reference ahead'; order.append(r - 1)
    distinct = [hash32() for _ in distinct]
    items = [(kinds[i], paths[i], []) for i in range(N)]
    for f, i in enumerate(owner):
        items[i][2].append((fkinds[f], fsizes[f], extents[f], distinct[order[f]]))
    return items
layout = 'columns' if flags & 8 else 'items'
files = 0
for kind, path, forks in (columns() if flags & 8 else rows()):
    for fk, fsize, extents, h in forks:
        got = b''.join(unpacked[bi][o:o + ln] for (bi, o, ln) in extents)
        assert len(got) == fsize and hashlib.sha256(got).digest() == h, ('item', path)
    files += kind == 0
assert pos == len(body), 'catalogue body fully read'
print('ok: version', version, 'catalogue', layout, 'blocks', B, 'methods', methods, 'filters', sorted(filters),
      'word text forms', sorted(forms), 'items', N, 'files', files)
