#!/usr/bin/env python3
"""Draw the images of the on-screen gamepad, keyboard and mouse controls.

Standard library only. Every shape is a signed distance function (negative inside)
with a bounding box; pixels on an edge are supersampled SS x SS times for smooth
edges. The PNG writer stores no time stamp, so every run gives identical files.

Usage: python3 draw_vrqvkey.py [output_dir]   (default: vrqvkey/ next to this file)
"""
import math, os, struct, sys, zlib
from functools import partial as P

SS = 4                          # samples per pixel along each axis
BG = (16, 18, 24, 150)          # translucent dark background, reads over video
BG_ON = (40, 125, 230, 220)     # pressed background
EDGE = (0, 0, 0, 200)           # darker outline
FG = (238, 240, 244, 255)       # light glyphs
ACC = (70, 165, 255, 255)       # pressed accent
WHITE = (255, 255, 255, 255)
FACE = {'A': (90, 190, 70, 255), 'B': (230, 70, 60, 255),
        'X': (50, 130, 235, 255), 'Y': (245, 200, 40, 255)}


# ---- shapes: (distance function, bounding box x0, y0, x1, y1) ----
def circle(cx, cy, r):
    return (lambda x, y: math.hypot(x - cx, y - cy) - r), (cx - r, cy - r, cx + r, cy + r)


def rbox(x0, y0, x1, y1, r):
    """Rectangle with corners rounded by radius r."""
    cx, cy, hx, hy = (x0 + x1) / 2, (y0 + y1) / 2, (x1 - x0) / 2 - r, (y1 - y0) / 2 - r

    def f(x, y):
        qx, qy = abs(x - cx) - hx, abs(y - cy) - hy
        return math.hypot(max(qx, 0), max(qy, 0)) + min(max(qx, qy), 0) - r
    return f, (x0, y0, x1, y1)


def poly(pts):
    """Convex polygon; the distance is the largest signed distance to an edge line."""
    pairs = list(zip(pts, pts[1:] + pts[:1]))
    s = 1 if sum(ax * by - bx * ay for (ax, ay), (bx, by) in pairs) > 0 else -1
    edges = [(ax, ay, s * (by - ay) / math.hypot(bx - ax, by - ay),
              -s * (bx - ax) / math.hypot(bx - ax, by - ay)) for (ax, ay), (bx, by) in pairs]
    xs, ys = [p[0] for p in pts], [p[1] for p in pts]
    return ((lambda x, y: max((x - ax) * nx + (y - ay) * ny for ax, ay, nx, ny in edges)),
            (min(xs), min(ys), max(xs), max(ys)))


def union(*shapes):
    fs, (x0, y0, x1, y1) = [s[0] for s in shapes], zip(*(s[1] for s in shapes))
    return (lambda x, y: min(f(x, y) for f in fs)), (min(x0), min(y0), max(x1), max(y1))


def cut(a, b, gap=0.0):
    """Shape a without shape b grown by gap."""
    return (lambda x, y: max(a[0](x, y), gap - b[0](x, y))), a[1]


def meet(a, b):
    (a0, a1, a2, a3), (b0, b1, b2, b3) = a[1], b[1]
    return (lambda x, y: max(a[0](x, y), b[0](x, y))), (max(a0, b0), max(a1, b1), min(a2, b2), min(a3, b3))


def frame(a, inset, w):
    """Line of width w running `inset` pixels inside the border of shape a."""
    x0, y0, x1, y1 = a[1]
    return (lambda x, y: abs(a[0](x, y) + inset) - w / 2), (x0 - w, y0 - w, x1 + w, y1 + w)


def ring(cx, cy, r, w):
    """Circle line of width w centred on radius r."""
    return frame(circle(cx, cy, r), 0, w)


def lines(polylines, w):
    """Polylines of width w with round ends."""
    sl = [(ax, ay, bx - ax, by - ay, (bx - ax) ** 2 + (by - ay) ** 2 or 1)
          for pl in polylines for (ax, ay), (bx, by) in zip(pl, pl[1:])]

    def f(x, y):
        best = 1e9
        for ax, ay, dx, dy, ll in sl:
            px, py = x - ax, y - ay
            t = min(1.0, max(0.0, (px * dx + py * dy) / ll))
            best = min(best, math.hypot(px - t * dx, py - t * dy))
        return best - w / 2
    xs, ys = [p[0] for pl in polylines for p in pl], [p[1] for pl in polylines for p in pl]
    return f, (min(xs) - w, min(ys) - w, max(xs) + w, max(ys) + w)


def rot4(pts, c, k):
    """Turn points by k quarter turns (clockwise on screen) about (c, c)."""
    for _ in range(k):
        pts = [(c - (y - c), c + (x - c)) for x, y in pts]
    return pts


# ---- a tiny stroke font: glyphs 1 unit high, y down: (advance, polylines) ----
def arc(cx, cy, rx, ry, a0, a1, n=12):
    return [(cx + rx * math.cos(math.radians(a0 + (a1 - a0) * i / n)),
             cy + ry * math.sin(math.radians(a0 + (a1 - a0) * i / n))) for i in range(n + 1)]


GLYPHS = {
    'A': (0.72, [[(0, 1), (0.36, 0), (0.72, 1)], [(0.14, 0.62), (0.58, 0.62)]]),
    'B': (0.69, [[(0, 0), (0, 1)], [(0, 0)] + arc(0.4, 0.25, 0.26, 0.25, -90, 90) + [(0, 0.5)],
                 [(0, 0.5)] + arc(0.42, 0.75, 0.27, 0.25, -90, 90) + [(0, 1)]]),
    'D': (0.66, [[(0, 0), (0, 1)], [(0, 0)] + arc(0.22, 0.5, 0.44, 0.5, -90, 90) + [(0, 1)]]),
    'L': (0.55, [[(0, 0), (0, 1), (0.55, 1)]]),
    'R': (0.66, [[(0, 1), (0, 0)] + arc(0.38, 0.26, 0.27, 0.26, -90, 90) + [(0, 0.52)],
                 [(0.3, 0.52), (0.66, 1)]]),
    'S': (0.64, [arc(0.32, 0.26, 0.3, 0.25, -30, -270) + arc(0.32, 0.75, 0.32, 0.25, -90, 150)]),
    'T': (0.7, [[(0, 0), (0.7, 0)], [(0.35, 0), (0.35, 1)]]),
    'W': (0.9, [[(0, 0), (0.22, 1), (0.45, 0.3), (0.68, 1), (0.9, 0)]]),
    'X': (0.66, [[(0, 0), (0.66, 1)], [(0.66, 0), (0, 1)]]),
    'Y': (0.7, [[(0, 0), (0.35, 0.5), (0.7, 0)], [(0.35, 0.5), (0.35, 1)]]),
}


def text(s, cx, cy, h, w):
    """Shape of the string s, centred on (cx, cy), letters h high, strokes w wide."""
    gap = 0.24 * h
    x = cx - (sum(GLYPHS[ch][0] * h for ch in s) + gap * (len(s) - 1)) / 2
    pls = []
    for ch in s:
        adv, gl = GLYPHS[ch]
        pls += [[(x + gx * h, cy - h / 2 + gy * h) for gx, gy in pl] for pl in gl]
        x += adv * h + gap
    return lines(pls, w)


# ---- canvas (premultiplied RGBA floats) and PNG writer ----
class Img:
    def __init__(self, w, h):
        self.w, self.h = w, h
        self.px = [(0.0, 0.0, 0.0, 0.0)] * (w * h)

    def fill(self, shape, rgba, edge=None, t=2.0):
        """Paint the shape in rgba; with edge, its outermost t pixels in that colour."""
        f, (x0, y0, x1, y1) = shape
        cols = [(c[0] * c[3] / 65025, c[1] * c[3] / 65025, c[2] * c[3] / 65025, c[3] / 255)
                for c in (rgba, edge or rgba)]
        t = t if edge else 0.0
        n = SS * SS
        for py in range(max(0, int(y0) - 1), min(self.h, int(y1) + 2)):
            for px in range(max(0, int(x0) - 1), min(self.w, int(x1) + 2)):
                d = f(px + 0.5, py + 0.5)
                if d > 0.75:
                    continue
                if d < -t - 0.75 or -t + 0.75 < d < -0.75:    # whole pixel one colour
                    src = cols[1] if d > -t else cols[0]
                else:                                           # edge pixel: supersample
                    ds = [f(px + (i + 0.5) / SS, py + (j + 0.5) / SS) for j in range(SS) for i in range(SS)]
                    hits = [cols[1] if e > -t else cols[0] for e in ds if e <= 0]
                    src = [sum(c[k] for c in hits) / n for k in range(4)]
                k = 1.0 - src[3]
                dst = self.px[py * self.w + px]
                self.px[py * self.w + px] = tuple(s + v * k for s, v in zip(src, dst))

    def flip(self):
        """Mirror top to bottom."""
        rows = [self.px[y * self.w:(y + 1) * self.w] for y in range(self.h)]
        self.px = [p for row in reversed(rows) for p in row]
        return self

    def png(self):
        raw = bytearray()
        for y in range(self.h):
            raw.append(0)                               # filter type 0 (none)
            for r, g, b, a in self.px[y * self.w:(y + 1) * self.w]:
                s = 255.0 / a if a > 0 else 0.0
                raw += bytes([min(255, round(r * s)), min(255, round(g * s)),
                              min(255, round(b * s)), min(255, round(a * 255))])

        def chunk(tag, data):
            return struct.pack('>I', len(data)) + tag + data + struct.pack('>I', zlib.crc32(tag + data))
        return (b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', struct.pack('>IIBBBBB', self.w, self.h, 8, 6, 0, 0, 0))
                + chunk(b'IDAT', zlib.compress(bytes(raw), 9)) + chunk(b'IEND', b''))


def label(img, s, cx, cy, h, w, colour):
    """Letters with a thin dark halo so they stay legible over any background."""
    img.fill(text(s, cx, cy, h, w + 4), (0, 0, 0, 110))
    img.fill(text(s, cx, cy, h, w), colour)


# ---- the images ----
def stick_base():
    img = Img(256, 256)
    img.fill(circle(128, 128, 124), BG, EDGE)
    img.fill(ring(128, 128, 110, 3), (255, 255, 255, 80))
    for k in range(4):
        img.fill(poly(rot4([(128, 26), (114, 42), (142, 42)], 128, k)), (238, 240, 244, 150))
    return img


def knob(size, on):
    img, c = Img(size, size), size / 2
    if on:
        img.fill(circle(c, c, c - 3), (250, 250, 252, 245), ACC, 5)
        img.fill(ring(c, c, c * 0.6, 4), ACC)
    else:
        img.fill(circle(c, c, c - 5), (190, 194, 202, 225), EDGE)
        img.fill(ring(c, c, c * 0.6, 3), (110, 114, 124, 225))
    return img


def pad(letters):
    """Cross-shaped direction pad with arrows, or with the given letters (up, left, down, right)."""
    img = Img(256, 256)
    img.fill(union(rbox(84, 12, 172, 244, 16), rbox(12, 84, 244, 172, 16)), BG, EDGE)
    if letters:
        for s, x, y in zip(letters, (128, 54, 128, 202), (54, 128, 202, 128)):
            label(img, s, x, y, 44, 8, FG)
        return img
    img.fill(circle(128, 128, 28), (0, 0, 0, 60))
    for k in range(4):
        img.fill(poly(rot4([(128, 30), (106, 60), (150, 60)], 128, k)), FG)
    return img


def face(letter, on):
    img, col = Img(128, 128), FACE[letter]
    if on:
        img.fill(circle(64, 64, 61), col[:3] + (235,), EDGE)
        img.fill(ring(64, 64, 52, 3), (255, 255, 255, 170))
        label(img, letter, 64, 64, 58, 10, (30, 30, 30, 255) if letter == 'Y' else WHITE)
    else:
        img.fill(circle(64, 64, 61), BG, EDGE)
        img.fill(ring(64, 64, 52, 4), col)
        label(img, letter, 64, 64, 58, 10, col)
    return img


def shoulder(s, on):
    """LB/RB: rounded bar 192x96; LT/RT: trigger 160x128 with an arched top."""
    if s[1] == 'B':
        img, shape, cy = Img(192, 96), rbox(3, 3, 189, 93, 30), 48
    else:
        img, shape, cy = Img(160, 128), meet(rbox(6, 6, 154, 122, 20), circle(80, 236, 230)), 70
    img.fill(shape, BG_ON if on else BG, EDGE)
    label(img, s, img.w / 2, cy, 44 if s[1] == 'B' else 46, 8, WHITE if on else FG)
    return img


def round_button(glyph, on):
    img = Img(128, 128)
    img.fill(circle(64, 64, 61), (235, 237, 242, 235) if on else BG, EDGE)
    col = (24, 26, 32, 255) if on else FG
    if glyph == 'menu':
        img.fill(lines([[(42, y), (86, y)] for y in (46, 64, 82)], 8), col)
    else:                                         # two overlapping squares
        front = rbox(52, 52, 94, 94, 6)
        img.fill(cut(frame(rbox(34, 34, 76, 76, 6), 3, 6), front, 5), col)
        img.fill(front, col)
    return img


def mouse(button, on):
    img = Img(128, 160)
    body, scroll = rbox(16, 6, 112, 154, 46), rbox(57, 22, 71, 54, 7)
    bf, sf = body[0], scroll[0]
    img.fill(body, BG, EDGE)
    img.fill(frame(body, 4, 3), FG)
    divider = [[(16, 70), (112, 70)], [(64, 6), (64, 19)], [(64, 57), (64, 70)]]
    img.fill(meet(lines(divider, 3), (lambda x, y: bf(x, y) + 3, body[1])), FG)
    if button == 'middle':                        # the wheel filled; bigger and blue when pressed
        img.fill(rbox(53, 18, 75, 58, 11) if on else scroll, ACC if on else FG)
    else:                                         # the wheel outlined, one button half filled
        img.fill(frame(scroll, 0, 3), FG)
        side = (lambda x: x - 60.5) if button == 'left' else (lambda x: 67.5 - x)
        half = (lambda x, y: max(bf(x, y) + 7, side(x), y - 66.5, 4 - sf(x, y)))
        img.fill((half, (16, 6, 112, 70)), ACC if on else (255, 255, 255, 120))
    return img


def wheel(up, on):
    img = Img(128, 128)
    img.fill(circle(64, 64, 61), BG_ON if on else BG, EDGE)
    img.fill(rbox(50, 52, 78, 108, 14), (255, 255, 255, 235) if on else (210, 214, 222, 220), EDGE)
    img.fill(lines([[(55, y), (73, y)] for y in (66, 76, 86, 96)], 3), (0, 0, 0, 120))
    img.fill(poly([(64, 14), (42, 44), (86, 44)]), WHITE if on else FG)
    return img if up else img.flip()


def key(on):
    img = Img(160, 160)
    img.fill(rbox(6, 6, 154, 154, 22), BG_ON if on else (30, 32, 40, 170), EDGE)
    top = rbox(18, 20, 142, 140, 16) if on else rbox(18, 12, 142, 132, 16)
    img.fill(top, (255, 255, 255, 50 if on else 28), (255, 255, 255, 110 if on else 60))
    return img


def images():
    """Every image name with the function drawing it."""
    out = {'stick_base': stick_base, 'dpad_base': P(pad, None), 'wasd_base': P(pad, 'WASD')}
    for on, sfx in ((False, ''), (True, '_on')):
        out.update({'stick_knob' + sfx: P(knob, 128, on), 'dpad_knob' + sfx: P(knob, 96, on),
                    'start' + sfx: P(round_button, 'menu', on), 'back' + sfx: P(round_button, 'squares', on),
                    'wheel_up' + sfx: P(wheel, True, on), 'wheel_down' + sfx: P(wheel, False, on),
                    'key' + sfx: P(key, on)})
        for s in 'abxy':
            out[s + sfx] = P(face, s.upper(), on)
        for s in ('lb', 'rb', 'lt', 'rt'):
            out[s + sfx] = P(shoulder, s.upper(), on)
        for button in ('left', 'right', 'middle'):
            out['mouse_' + button + sfx] = P(mouse, button, on)
    return out


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(os.path.abspath(__file__)), 'vrqvkey')
    os.makedirs(out, exist_ok=True)
    for name, draw in images().items():
        with open(os.path.join(out, name + '.png'), 'wb') as fh:
            fh.write(draw().png())
    print('wrote images to', out)


if __name__ == '__main__':
    main()
