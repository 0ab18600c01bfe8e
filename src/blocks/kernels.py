"""The rules of the blocks in Python, with the same bits as kernels.h: the Python generator quotes what a model needs.

One function a paragraph, with no blank line in it. x is the list of what a block stores from sample to sample, k
the sample's number. Where Python raises, these give the C library's answer.
"""

import math
import struct


def truth(u):
    return 1.0 if u else 0.0


def clip(a, lo, hi):
    return hi if a > hi else (lo if lo > a else a)


def divide(u, v):
    if v != 0.0:
        return u / v
    if u == 0.0 or u != u or v != v:
        return math.nan
    return math.copysign(math.inf, math.copysign(1.0, u) * math.copysign(1.0, v))


def root(u):
    return math.nan if u < 0.0 else math.sqrt(u)


def whole_part(rounded, u):
    """A whole number with the sign of u; u itself where it is infinite or NaN."""
    return math.copysign(float(rounded(u)), u) if math.isfinite(u) else u


def floor(u):
    return whole_part(math.floor, u)


def ceil(u):
    return whole_part(math.ceil, u)


def trunc(u):
    return whole_part(math.trunc, u)


def nearest(u):
    """Halves away from zero."""
    whole = trunc(u)
    return whole + math.copysign(1.0, u) if abs(u - whole) >= 0.5 else whole


def exponential(u):
    try:
        return math.exp(u)
    except OverflowError:
        return math.inf


def logarithm(function, u):
    if u == 0.0:
        return -math.inf
    return math.nan if u < 0.0 else function(u)


def within_domain(function, u):
    try:
        return function(u)
    except ValueError:
        return math.nan


def power(u, v):
    odd = math.isfinite(v) and math.fmod(v, 2.0) in (1.0, -1.0)
    try:
        return math.pow(u, v)
    except OverflowError:
        return -math.inf if u < 0.0 and odd else math.inf
    except ValueError:
        if u != 0.0:
            return math.nan
        return math.copysign(math.inf, u) if odd else math.inf


def remainder(u, v):
    if v == 0.0 or math.isinf(u):
        return math.nan
    return math.fmod(u, v)


def modulo(u, v):
    return remainder(remainder(u, v) + v, v)


def to_whole(u, lo, hi):
    return 0.0 if u != u else float(int(clip(u, lo, hi)))


def to_single(u):
    try:
        return struct.unpack("<f", struct.pack("<f", u))[0]
    except OverflowError:
        return math.copysign(math.inf, u)


def sign(u):
    return float((u > 0.0) - (u < 0.0))


def smallest(u):
    y = u[0]
    for other in u[1:]:
        y = other if other < y else y
    return y


def largest(u):
    y = u[0]
    for other in u[1:]:
        y = other if other > y else y
    return y


def pick(j, u):
    return u[0] if j != j else u[int(clip(j, 1.0, float(len(u)))) - 1]


def word32(u):
    return int(to_whole(u, 0.0, 4294967295.0))


def bits_and(u, v):
    return float(word32(u) & word32(v))


def bits_or(u, v):
    return float(word32(u) | word32(v))


def bits_xor(u, v):
    return float(word32(u) ^ word32(v))


def bits_not(u):
    return float(word32(u) ^ 0xFFFFFFFF)


def shift_left(u, v):
    by = word32(v)
    return float((word32(u) << by) & 0xFFFFFFFF) if by < 32 else 0.0


def shift_right(u, v):
    by = word32(v)
    return float(word32(u) >> by) if by < 32 else 0.0


def word64(u):
    if u != u:
        return 0
    if u >= 9223372036854775808.0:
        return 0x7FFFFFFFFFFFFFFF
    if u <= -9223372036854775808.0:
        return 0x8000000000000000
    return int(u) & 0xFFFFFFFFFFFFFFFF


def bit_of(u, bit):
    return float(word64(u) >> bit & 1)


def field_unsigned(u, msb, lsb, gain, bias):
    return float((word64(u) & ((1 << (msb + 1)) - 1)) >> lsb) * gain + bias


def field_signed(u, msb, lsb, gain, bias):
    word = word64(u)
    y = float((word & ((1 << msb) - 1)) >> lsb) * gain + bias
    return -y if word >> msb & 1 else y


def field_complement(u, msb, lsb, gain, bias):
    word, top = word64(u), 1 << msb
    return float(((word & (top - 1)) >> lsb) - ((word & top) >> lsb)) * gain + bias


def field_decimal(u, msb, lsb, gain, bias):
    digits, weight, total = (word64(u) & ((1 << (msb + 1)) - 1)) >> lsb, 1, 0
    while digits:
        total += (digits & 15) * weight
        digits >>= 4
        weight *= 10
    return float(total) * gain + bias


def pulse(k, first, on, period, value_on, value_off):
    if k < first:
        return value_off
    return value_on if int(k - first) % int(period) < on else value_off


def uniform(x):
    s = int(x[0])
    s ^= (s << 13) & 0xFFFFFFFF
    s ^= s >> 17
    s ^= (s << 5) & 0xFFFFFFFF
    x[0] = float(s)
    return float(s) / 4294967296.0


def stamp_before(t, stamps, x):
    i = int(x[0])
    while i + 1 < len(stamps) and stamps[i + 1] <= t:
        i += 1
    x[0] = float(i)
    return i


def series_hold(t, stamps, values, before, x):
    return before if t < stamps[0] else values[stamp_before(t, stamps, x)]


def line(u, u0, u1, y0, y1):
    return y0 + (y1 - y0) * ((u - u0) / (u1 - u0))


def series_line(t, stamps, values, before, x):
    if t < stamps[0]:
        return before
    i = stamp_before(t, stamps, x)
    if i + 1 == len(stamps):
        return values[i]
    return line(t, stamps[i], stamps[i + 1], values[i], values[i + 1])


def segment(u, b):
    low, high = 0, len(b) - 1
    while high - low > 1:
        middle = low + (high - low) // 2
        if b[middle] <= u:
            low = middle
        else:
            high = middle
    return low


def lookup_extend(u, b, out, first=0):
    if len(b) == 1 or u != u:
        return u if u != u else out[first]
    i = segment(u, b)
    return line(u, b[i], b[i + 1], out[first + i], out[first + i + 1])


def lookup_clip(u, b, out, first=0):
    if u <= b[0]:
        return out[first]
    return out[first + len(b) - 1] if u >= b[-1] else lookup_extend(u, b, out, first)


def lookup2_extend(u, v, r, c, out):
    if len(r) == 1:
        return lookup_extend(v, c, out)
    i = segment(u, r)
    low, high = lookup_extend(v, c, out, i * len(c)), lookup_extend(v, c, out, (i + 1) * len(c))
    return line(u, r[i], r[i + 1], low, high)


def lookup2_clip(u, v, r, c, out):
    if len(r) == 1 or u <= r[0]:
        return lookup_clip(v, c, out)
    if u >= r[-1]:
        return lookup_clip(v, c, out, (len(r) - 1) * len(c))
    i = segment(u, r)
    low, high = lookup_clip(v, c, out, i * len(c)), lookup_clip(v, c, out, (i + 1) * len(c))
    return line(u, r[i], r[i + 1], low, high)


def edge_rising(u, x):
    before, x[0] = x[0], truth(u)
    return 1.0 if x[0] > before else 0.0


def edge_falling(u, x):
    before, x[0] = x[0], truth(u)
    return 1.0 if x[0] < before else 0.0


def edge_either(u, x):
    before, x[0] = x[0], truth(u)
    return 1.0 if x[0] != before else 0.0


def latch(set_, reset, x):
    x[0] = 0.0 if reset else (1.0 if set_ else x[0])
    return x[0]


def count_edges(u, reset, by, first, lo, hi, x):
    rises = u != 0.0 and x[1] == 0.0
    x[1] = truth(u)
    if reset:
        x[0] = first
    elif rises:
        x[0] = lo if x[0] + by > hi else x[0] + by
    return x[0]


def debounce(u, k, on, off, x):
    before, x[0] = x[0], truth(u)
    if k == 0.0:
        return 0.0
    if u:
        if not before:
            x[1] = k
        return 1.0 if k - x[1] >= on else 0.0
    if before:
        x[2] = k
    return 1.0 if off > k - x[2] else 0.0


def dead_zone(u, lo, hi):
    return u - hi if u > hi else (u - lo if u < lo else 0.0)


def rate_limit(u, up, down, x):
    d = u - x[0]
    x[0] = x[0] + up if d > up else (x[0] - down if d < -down else u)
    return x[0]


def relay(u, lo, hi, on, off, x):
    if u > hi:
        x[0] = 1.0
    if u < lo:
        x[0] = 0.0
    return on if x[0] else off


def quantize(u, step):
    return step * nearest(u / step)


def hold(u, take, x):
    if take:
        x[0] = u
    return x[0]


def hold_every(u, k, period, x):
    if int(k) % int(period) == 0:
        x[0] = u
    return x[0]


def delay_read(x):
    return x[1 + int(x[0])]


def delay_write(u, count, x):
    x[1 + int(x[0])] = u
    x[0] = x[0] + 1.0 if x[0] + 1.0 < count else 0.0


def integrate_backward(u, gain, lo, hi, x):
    x[0] = clip(x[0] + gain * u, lo, hi)
    return x[0]


def integrate_trapezoidal(u, k, half, lo, hi, x):
    if k != 0.0:
        x[0] = clip(x[0] + half * (u + x[1]), lo, hi)
    x[1] = u
    return x[0]


def derivative(u, k, gain, ts, first, x):
    y = first if k == 0.0 else gain * ((u - x[0]) / ts)
    x[0] = u
    return y


def low_pass(u, k, keep, take, x):
    x[0] = u if k == 0.0 else keep * x[0] + take * u
    return x[0]


def high_pass(u, k, keep, x):
    x[0] = u if k == 0.0 else keep * ((x[0] + u) - x[1])
    x[1] = u
    return x[0]


def first_order(u, a, b, x):
    x[0] = a * x[0] + b * u
    return x[0]


def pid(u, k, kp, ki_ts, kd, ts, lo, hi, x):
    d = 0.0 if k == 0.0 else kd * ((u - x[1]) / ts)
    w = kp * u + x[0] + d
    q = ki_ts * u
    x[1] = u
    if not ((w > hi and q > 0.0) or (w < lo and q < 0.0)):
        x[0] = x[0] + q
    return clip(w, lo, hi)
