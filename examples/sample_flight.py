"""Makes up a flight of a small quadcopter and writes it as recorded data.

The flight: arming, take-off, laps around a field in gusty wind, a motor bearing that wears out (vibration
and heat rise for about forty seconds before it gives way), return, landing. Every now and then the mission
runs a winch, which is too much for the supply of the servo rail: the rail sags, two and a half seconds later
the supply reports an overload, and the winch is stopped. All this comes from a simple physical model with a
fixed seed, so every run writes the same bytes.

    python examples/sample_flight.py OUTDIR [--minutes 12] [--forms bin,log,csv] [--megabytes N]

The forms are an ArduPilot binary log (.bin), the same log as text (.log) and a table of the main
quantities, 16 rows a second (.csv). `--megabytes` picks the length of the flight by the size of the binary
log instead, with fast IMU logging, for benchmarks.
"""

from __future__ import annotations

import argparse
import math
from pathlib import Path

import numpy as np

SEED = 20240917
GRAVITY = 9.80665
STEP = 0.02  # of the simulation, in seconds
BOOT = 31.5  # autopilot clock when the flight's time starts, in seconds
HOME = (47.397742, 8.545594, 488.0)  # latitude, longitude, altitude
GPS_WEEK, GPS_SECOND = 2332, 214_530.0
HOVER = 0.36  # throttle
FAULTY = 2  # index of the motor that fails
RAIL, SAGGED = 5.3, 4.74  # of the servo rail with the winch off and on, in volts
WINCH = 1.9  # what the winch draws from the battery, in amperes
PATIENCE, STOP, RECOVERED = 2.5, 3.0, 4.0  # start to overload report, to end of winch, to end of report; s

# Laps: north, east, height in metres.
WAYPOINTS = [(180.0, 0.0, 45.0), (180.0, 220.0, 60.0), (-40.0, 220.0, 50.0), (-40.0, 0.0, 40.0)]

# Name: message type, field letters, labels, records a second.
MESSAGES = {
    "FMT": (128, "BBnNZ", "Type,Length,Name,Format,Columns", 0),
    "PARM": (64, "QNff", "TimeUS,Name,Value,Default", 0),
    "MSG": (91, "QZ", "TimeUS,Message", 0),
    "MODE": (112, "QMBB", "TimeUS,Mode,ModeNum,Rsn", 0),
    "EV": (4, "QB", "TimeUS,Id", 0),
    "ERR": (5, "QBB", "TimeUS,Subsys,ECode", 0),
    "IMU": (129, "QBffffffIIfBBHH", "TimeUS,I,GyrX,GyrY,GyrZ,AccX,AccY,AccZ,EG,EA,T,GH,AH,GHz,AHz", 100),
    "ATT": (163, "QccccCCCCB", "TimeUS,DesRoll,Roll,DesPitch,Pitch,DesYaw,Yaw,ErrRP,ErrYaw,AEKF", 25),
    "RATE": (216, "Qffffffffffff", "TimeUS,RDes,R,ROut,PDes,P,POut,YDes,Y,YOut,ADes,A,AOut", 25),
    "CTUN": (2, "Qffffffefcfhh", "TimeUS,ThI,ABst,ThO,ThH,DAlt,Alt,BAlt,DSAlt,SAlt,TAlt,DCRt,CRt", 10),
    "RCOU": (136, "QHHHHHHHH", "TimeUS,C1,C2,C3,C4,C5,C6,C7,C8", 25),
    "GPS": (130, "QBBIHBcLLeffffB", "TimeUS,I,Status,GMS,GWk,NSats,HDop,Lat,Lng,Alt,Spd,GCrs,VZ,Yaw,U", 5),
    "POS": (182, "QLLfff", "TimeUS,Lat,Lng,Alt,RelHomeAlt,RelOriginAlt", 10),
    "BARO": (139, "QBffcfIffB", "TimeUS,I,Alt,Press,Temp,CRt,SMS,Offset,GndTemp,Health", 10),
    "BAT": (164, "QBfffffcfB", "TimeUS,Instance,Volt,VoltR,Curr,CurrTot,EnrgTot,Temp,Res,RemPct", 10),
    "POWR": (115, "QffHH", "TimeUS,Vcc,VServo,Flags,AccFlags", 10),
    "ESC": (161, "QBeCCcHcf", "TimeUS,Instance,RPM,Volt,Curr,Temp,CTot,MotTemp,Err", 10),
    "VIBE": (189, "QBfffI", "TimeUS,IMU,VibeX,VibeY,VibeZ,Clip", 10),
}
INSTANCES = {"IMU": 2, "VIBE": 2, "ESC": 4}

# Field letter: type in the record, steps a unit (fixed-point fields), text form.
LETTERS = {
    "b": ("i1", 1, "%d"), "B": ("u1", 1, "%d"), "M": ("u1", 1, "%d"), "h": ("<i2", 1, "%d"),
    "H": ("<u2", 1, "%d"), "i": ("<i4", 1, "%d"), "I": ("<u4", 1, "%d"), "q": ("<i8", 1, "%d"),
    "Q": ("<u8", 1, "%d"), "c": ("<i2", 100, "%.2f"), "C": ("<u2", 100, "%.2f"), "e": ("<i4", 100, "%.2f"),
    "E": ("<u4", 100, "%.2f"), "L": ("<i4", 1e7, "%.7f"), "f": ("<f4", 1, "%.7g"), "d": ("<f8", 1, "%.15g"),
    "n": ("S4", 1, "%s"), "N": ("S16", 1, "%s"), "Z": ("S64", 1, "%s"),
}  # fmt: skip

PARAMETERS = [
    ("FRAME_CLASS", 1, 0), ("FRAME_TYPE", 1, 1), ("ARMING_CHECK", 1, 1), ("ATC_ANG_RLL_P", 8.5, 4.5),
    ("ATC_ANG_PIT_P", 8.5, 4.5), ("ATC_ANG_YAW_P", 5.2, 4.5), ("ATC_RAT_RLL_P", 0.118, 0.135),
    ("ATC_RAT_RLL_I", 0.118, 0.135), ("ATC_RAT_RLL_D", 0.0031, 0.0036), ("ATC_RAT_PIT_P", 0.122, 0.135),
    ("ATC_RAT_PIT_I", 0.122, 0.135), ("ATC_RAT_PIT_D", 0.0034, 0.0036), ("BATT_CAPACITY", 9800, 3300),
    ("BATT_LOW_VOLT", 14.2, 10.5), ("FS_VIBE_ENABLE", 1, 1), ("INS_GYRO_FILTER", 40, 20),
    ("INS_ACCEL_FILTER", 20, 20), ("LOG_BITMASK", 176126, 176126), ("MOT_SPIN_ARM", 0.1, 0.1),
    ("MOT_THST_EXPO", 0.62, 0.65), ("MOT_THST_HOVER", HOVER, 0.35), ("RTL_ALT", 4000, 1500),
    ("RTL_SPEED", 900, 0), ("SCHED_LOOP_RATE", 400, 400), ("WPNAV_ACCEL", 250, 250),
    ("WPNAV_SPEED", 800, 1000), ("WPNAV_SPEED_DN", 150, 150), ("WPNAV_SPEED_UP", 250, 250),
]  # fmt: skip

STATE_NAMES = (
    "north east up vn ve vu roll pitch yaw p q r roll_des pitch_des yaw_des p_des q_des r_des up_des "
    "vu_des throttle accel_n accel_e accel_u out_p out_q out_r t0 t1 t2 t3 used wind_n wind_e"
)
STATES = STATE_NAMES.split()


class Flight:
    """The simulated states on a grid of STEP seconds, and what follows from them."""

    def __init__(self, minutes: float):
        self.duration = 60.0 * minutes
        self.rng = np.random.default_rng(SEED)
        self.fault = self.duration - 150.0
        self.events: list[tuple[float, str, object]] = []  # time, kind, content
        self.time = np.arange(0.0, self.duration, STEP)
        starts = np.arange(60.0, self.fault - 15.0, 40.0)
        self.winch_starts = starts + np.random.default_rng(SEED + 2).uniform(-8.0, 8.0, starts.size)
        states = self._simulate(*self._wind())
        for name, column in zip(STATES, states.T, strict=True):
            setattr(self, name, np.ascontiguousarray(column))
        self._derive()

    def _wind(self):
        """Wind to the north and to the east: a steady part, turbulence and single gusts."""
        n = self.time.size
        wind = np.empty((2, n))
        for axis, steady in enumerate((2.2, -3.1)):
            noise = self.rng.standard_normal(n)
            kernel = np.exp(-np.arange(0, 12, STEP) / 2.5)
            smooth = np.convolve(noise, kernel / math.sqrt((kernel**2).sum()), "full")[:n]
            wind[axis] = steady + 0.9 * smooth
        for start in np.arange(50.0, self.duration - 40.0, 37.0) + self.rng.uniform(-8, 8):
            strength, length = self.rng.uniform(2.0, 5.5), self.rng.uniform(3.0, 7.0)
            shape = np.where(
                np.abs(self.time - start) < length,
                0.5 + 0.5 * np.cos(math.pi * (self.time - start) / length),
                0.0,
            )
            angle = self.rng.uniform(-0.6, 0.6) - 0.9
            wind += strength * np.array([[math.cos(angle)], [math.sin(angle)]]) * shape
        return wind[0].tolist(), wind[1].tolist()

    def wear(self, time):
        """How far the bearing of the faulty motor is gone: 0 sound, 1 at the moment it gives way."""
        grown = np.exp((np.minimum(time, self.fault) - self.fault + 40.0) / 11.0) - 1.0
        return np.clip(grown / math.expm1(40.0 / 11.0), 0.0, None) + 0.5 * (time > self.fault)

    def winch(self, time):
        """Whether the winch runs, and whether the supply of the rail reports an overload."""
        since = np.append(-np.inf, self.winch_starts)
        since = time - since[np.searchsorted(self.winch_starts, time, "right")]
        return since < STOP, (since >= PATIENCE) & (since < RECOVERED)

    def _simulate(self, wind_n, wind_e):
        """Steps the airframe, its controller, the motor temperatures and the battery through the flight."""
        sin, cos, atan = math.sin, math.cos, math.atan
        wear = self.wear(self.time).tolist()
        winch = (WINCH * self.winch(self.time)[0]).tolist()
        rows = []
        north = east = up = vn = ve = vu = roll = pitch = p = q = r = used = 0.0
        yaw = yaw_des = 0.6
        temperatures = [24.0] * 4
        throttle, phase, leg, since = 0.0, "ground", 0, 0.0
        say = self.events.append
        say((1.0, "MODE", (0, 1)))
        say((1.2, "MSG", "Sample quadcopter, simulated flight"))
        say((1.3, "MSG", "Frame: QUAD/X"))
        for i, t in enumerate(self.time.tolist()):
            # What the flight is about to do.
            speed = 8.0
            goal, up_des = (north, east), up
            if phase == "ground" and t >= 8.0 and since == 0.0:
                since = t
                say((t, "EV", 10))
                say((t, "MSG", "Arming motors"))
            elif phase == "ground" and since and t - since > 5.0:
                phase = "climb"
                say((t, "MODE", (3, 2)))
                say((t, "MSG", "Mission: 1 Takeoff"))
            elif phase == "climb":
                goal, up_des = (0.0, 0.0), 40.0
                if up > 39.0:
                    phase = "mission"
                    say((t, "MSG", "Mission: 2 WP"))
            elif phase == "mission":
                goal, up_des = WAYPOINTS[leg][:2], WAYPOINTS[leg][2]
                if math.hypot(goal[0] - north, goal[1] - east) < 4.0:
                    leg = (leg + 1) % len(WAYPOINTS)
                    say((t, "MSG", f"Mission: {leg + 2} WP"))
                if t > self.fault + 3.0:
                    phase = "return"
                    say((t, "ERR", (29, 1)))
                    say((t, "MODE", (6, 10)))
                    say((t, "MSG", "Vibration compensation ON"))
            elif phase == "return":
                goal, up_des = (0.0, 0.0), 40.0
                if math.hypot(north, east) < 2.0 and abs(up - 40.0) < 2.5:
                    phase = "land"
                    say((t, "MODE", (9, 10)))
            elif phase == "land":
                goal, speed, up_des = (0.0, 0.0), 2.0, -1.0
                if up <= 0.0:
                    phase = "landed"
                    since = t
                    say((t, "EV", 18))
            elif phase == "landed" and since and t - since > 2.0:
                phase = "over"
                say((t, "EV", 11))
                say((t, "MSG", "Disarming motors"))

            # Position, velocity and attitude controllers.
            flying = phase in ("climb", "mission", "return", "land")
            wn, we = (wind_n[i], wind_e[i]) if up > 0.0 else (0.0, 0.0)
            vu_des = p_des = q_des = r_des = roll_des = pitch_des = 0.0
            accel_n = accel_e = accel_u = out_p = out_q = out_r = 0.0
            if flying:
                dn, de = goal[0] - north, goal[1] - east
                distance = math.hypot(dn, de)
                wanted = min(speed, 0.55 * distance)
                scale = wanted / distance if distance > 0.1 else 0.0
                an = 0.9 * (dn * scale - vn) + 0.14 * (vn - wn)
                ae = 0.9 * (de * scale - ve) + 0.14 * (ve - we)
                limit = max(1.0, math.hypot(an, ae) / 4.5)
                an, ae = an / limit, ae / limit
                fastest_down = -1.5 if up > 8.0 else -0.6
                vu_des = min(2.5, max(fastest_down, 0.9 * (up_des - up)))
                thrust = (GRAVITY + 1.6 * (vu_des - vu)) / max(0.6, cos(roll) * cos(pitch))
                cy, sy = cos(yaw), sin(yaw)
                pitch_des = -atan((cy * an + sy * ae) / GRAVITY)
                roll_des = atan((cy * ae - sy * an) / GRAVITY)
                if distance > 12.0 and phase != "land":
                    yaw_des = math.atan2(de, dn)
                turn = (yaw_des - yaw + math.pi) % (2 * math.pi) - math.pi
                p_des, q_des = 6.5 * (roll_des - roll), 6.5 * (pitch_des - pitch)
                r_des = max(-1.0, min(1.0, 1.8 * turn))
                shake = wear[i] * sin(37.0 * t) * (1.0 if t < self.fault else 1.8)
                out_p, out_q, out_r = 11.0 * (p_des - p), 11.0 * (q_des - q), 5.0 * (r_des - r)
                gust = 0.10 * ((we - ve) * cy - (wn - vn) * sy)
                p += STEP * (out_p + gust + 2.2 * shake)
                q += STEP * (out_q + 1.6 * shake)
                r += STEP * out_r
                roll += STEP * p
                pitch += STEP * q
                yaw = (yaw + STEP * r) % (2 * math.pi)
                accel_n = thrust * (-cy * sin(pitch) * cos(roll) - sy * sin(roll)) - 0.14 * (vn - wn)
                accel_e = thrust * (-sy * sin(pitch) * cos(roll) + cy * sin(roll)) - 0.14 * (ve - we)
                accel_u = thrust * cos(roll) * cos(pitch) - GRAVITY - 0.2 * vu
                vn, ve, vu = vn + STEP * accel_n, ve + STEP * accel_e, vu + STEP * accel_u
                north, east, up = north + STEP * vn, east + STEP * ve, max(0.0, up + STEP * vu)
                throttle = max(0.05, HOVER * thrust / GRAVITY)
            else:
                throttle = 0.1 if since and phase in ("ground", "landed") else 0.0
                vn = ve = vu = p = q = r = 0.0
                roll *= 0.9
                pitch *= 0.9

            # Heat of the motors, charge from the battery.
            heating = 60.0 * (throttle / HOVER) ** 1.5
            for motor in range(4):
                power = heating * (1.0 + (1.7 * wear[i] if motor == FAULTY else 0.0)) * (throttle > 0.05)
                temperatures[motor] += STEP * (power - (temperatures[motor] - 24.0) * 1.35) / 45.0
            used += STEP / 3.6 * (0.6 + winch[i] + (27.0 + 4.0 * wear[i]) * (throttle / HOVER) ** 1.5)
            rows.append(
                (
                    north,
                    east,
                    up,
                    vn,
                    ve,
                    vu,
                    roll,
                    pitch,
                    yaw,
                    p,
                    q,
                    r,
                    roll_des,
                    pitch_des,
                    yaw_des,
                    p_des,
                    q_des,
                    r_des,
                    up_des,
                    vu_des,
                    throttle,
                    accel_n,
                    accel_e,
                    accel_u,
                    out_p,
                    out_q,
                    out_r,
                    *temperatures,
                    used,
                    wn,
                    we,
                )
            )
        return np.array(rows)

    def _derive(self):
        """Motor commands, current, voltage and how strongly the frame shakes."""
        worn = self.wear(self.time) * (self.throttle > 0.05)
        mix = np.array([[-1, 1, 1], [1, -1, 1], [1, 1, -1], [-1, -1, -1]])
        turning = np.stack([self.out_p, self.out_q, self.out_r]) * np.array([[0.011], [0.011], [0.02]])
        self.motors = np.clip(self.throttle + mix @ turning, 0.0, 1.0) * (self.throttle > 0.0)
        self.motors[FAULTY] = np.clip(self.motors[FAULTY] * (1.0 + 0.22 * worn), 0.0, 1.0)
        self.rpm = 9600.0 * np.sqrt(self.motors)
        self.rpm[FAULTY] *= 1.0 - 0.10 * np.clip(worn, 0, 1.5)
        self.current = 0.6 + (27.0 + 4.0 * worn) * (self.throttle / HOVER) ** 1.5
        self.current += WINCH * self.winch(self.time)[0]
        charge = np.clip(1.0 - self.used / 9800.0, 0.02, 1.0)
        self.rest_voltage = 13.4 + 3.3 * charge - 0.25 * np.exp(-12.0 * charge)
        self.voltage = self.rest_voltage - 0.014 * self.current
        self.remaining = 100.0 * charge
        self.shaking = 0.4 * (self.throttle > 0.0) + 2.4 * self.throttle + 9.0 * worn
        self.heading = np.degrees(self.yaw)
        self.ground_speed = np.hypot(self.vn, self.ve)
        self.temperatures = np.stack([self.t0, self.t1, self.t2, self.t3])

    def at(self, time, values):
        return np.interp(time, self.time, values)

    def angle_at(self, time, degrees):
        """Like `at` for headings, which may pass north between two steps."""
        return self.at(time, np.unwrap(degrees, period=360.0)) % 360.0


def record_type(name: str) -> np.dtype:
    _, letters, labels, _ = MESSAGES[name]
    fields = [("sync", "<u2"), ("type", "u1")]
    fields += [(label, LETTERS[letter][0]) for letter, label in zip(letters, labels.split(","), strict=True)]
    return np.dtype(fields)


def records(name: str, **columns) -> np.ndarray:
    """Records of one message; columns that are not given stay zero."""
    first = np.atleast_1d(next(iter(columns.values())))
    table = np.zeros(len(first), record_type(name))
    table["sync"], table["type"] = 0x95A3, MESSAGES[name][0]
    for letter, label in zip(MESSAGES[name][1], MESSAGES[name][2].split(","), strict=True):
        if label not in columns:
            continue
        kind, steps, _ = LETTERS[letter]
        values = np.asarray(columns.pop(label))
        if kind[0] != "S" and np.dtype(kind).kind in "iu":
            limits = np.iinfo(kind)
            low, high = max(limits.min, -(2**53)), min(limits.max, 2**53)
            values = np.clip(np.rint(values * float(steps)), low, high)
        table[label] = values
    assert not columns, f"{name} has no {', '.join(columns)}"
    return table


def declarations() -> np.ndarray:
    rows = sorted(MESSAGES.items(), key=lambda item: item[0] != "FMT")
    return records(
        "FMT",
        Type=[m[0] for _, m in rows],
        Length=[record_type(n).itemsize for n, _ in rows],
        Name=[n.encode() for n, _ in rows],
        Format=[m[1].encode() for _, m in rows],
        Columns=[m[2].encode() for _, m in rows],
    )


def log_records(flight: Flight, imu_hz: float) -> dict[str, np.ndarray]:
    """All records of the flight by message name, each in the order of time."""
    rng = flight.rng
    tables: dict[str, np.ndarray] = {}

    def stamps(name, phase=0.0):
        """Flight times of a message's records and their stamps, with the jitter of a busy autopilot."""
        hz = imu_hz if name == "IMU" else MESSAGES[name][3]
        time = np.arange(0.5 + phase / hz, flight.duration - 0.1, 1.0 / hz)
        late = rng.integers(0, max(2, int(1e5 / hz)), time.size)
        return time, np.rint((time + BOOT) * 1e6).astype(np.int64) + late

    def noise(time, spread):
        return spread * rng.standard_normal(len(time))

    def each(name, make):
        """The records of all instances of a message, interleaved."""
        parts = [make(i, *stamps(name, 0.03 * i)) for i in range(INSTANCES[name])]
        joined = np.concatenate(parts)
        return joined[np.argsort(joined["TimeUS"], kind="stable")]

    at, degrees = flight.at, np.degrees
    start = int(BOOT * 1e6)
    tables["PARM"] = records(
        "PARM",
        TimeUS=start + 1000 * np.arange(len(PARAMETERS)),
        Name=[p[0].encode() for p in PARAMETERS],
        Value=[p[1] for p in PARAMETERS],
        Default=[p[2] for p in PARAMETERS],
    )
    for kind in ("MSG", "MODE", "EV", "ERR"):
        found = [(round((t + BOOT) * 1e6), content) for t, name, content in flight.events if name == kind]
        when, what = [t for t, _ in found], [content for _, content in found]
        if kind == "MSG":
            tables[kind] = records(kind, TimeUS=when, Message=[text.encode() for text in what])
        elif kind == "MODE":
            tables[kind] = records(
                kind,
                TimeUS=when,
                Mode=[m for m, _ in what],
                ModeNum=[m for m, _ in what],
                Rsn=[reason for _, reason in what],
            )
        elif kind == "EV":
            tables[kind] = records(kind, TimeUS=when, Id=what)
        else:
            tables[kind] = records(kind, TimeUS=when, Subsys=[s for s, _ in what], ECode=[e for _, e in what])

    def imu(instance, time, stamp):
        shaking = at(time, flight.shaking)
        turns = 2 * math.pi * np.cumsum(at(time, flight.rpm[FAULTY]) / 60.0) / imu_hz
        worn = flight.wear(time) * at(time, flight.throttle > 0.05)
        roll, pitch, yaw = (at(time, np.unwrap(a)) for a in (flight.roll, flight.pitch, flight.yaw))
        accel_n, accel_e = at(time, flight.accel_n), at(time, flight.accel_e)
        down = -(GRAVITY + at(time, flight.accel_u))
        forward, right = (
            np.cos(yaw) * accel_n + np.sin(yaw) * accel_e,
            np.cos(yaw) * accel_e - np.sin(yaw) * accel_n,
        )
        bias = 0.02 * (instance + 1)
        return records(
            "IMU",
            TimeUS=stamp,
            I=np.full(time.size, instance),
            GyrX=at(time, flight.p) + noise(time, 0.004) + 0.02 * shaking * noise(time, 1.0),
            GyrY=at(time, flight.q) + noise(time, 0.004) + 0.02 * shaking * noise(time, 1.0),
            GyrZ=at(time, flight.r) + noise(time, 0.003) + 0.008 * shaking * noise(time, 1.0),
            AccX=forward * np.cos(pitch) - down * -np.sin(pitch) + bias + shaking * noise(time, 0.30),
            AccY=right * np.cos(roll) + down * np.sin(roll) - bias + shaking * noise(time, 0.32),
            AccZ=down * np.cos(roll) * np.cos(pitch)
            + shaking * noise(time, 0.42)
            + 6.0 * worn * np.sin(turns),
            T=41.0 + 6.0 * (1.0 - np.exp(-time / 240.0)) + noise(time, 0.02),
            GH=np.ones(time.size),
            AH=np.ones(time.size),
            GHz=np.full(time.size, 2000),
            AHz=np.full(time.size, 1000),
        )

    def vibe(instance, time, stamp):
        shaking = at(time, flight.shaking)
        clips = np.cumsum(rng.poisson(np.clip(shaking - 9.0, 0.0, None) * 0.7))
        level = [np.abs(shaking * share * (1.0 + noise(time, 0.07))) for share in (1.9, 2.0, 2.6)]
        return records(
            "VIBE",
            TimeUS=stamp,
            IMU=np.full(time.size, instance),
            VibeX=level[0],
            VibeY=level[1],
            VibeZ=level[2],
            Clip=clips,
        )

    def esc(motor, time, stamp):
        command, rpm = at(time, flight.motors[motor]), at(time, flight.rpm[motor])
        share = np.where(command > 0.02, 0.25 * at(time, flight.current), 0.05)
        temperature = at(time, flight.temperatures[motor])
        return records(
            "ESC",
            TimeUS=stamp,
            Instance=np.full(time.size, motor),
            RPM=np.maximum(0.0, rpm + noise(time, 12.0) * (rpm > 100)),
            Volt=at(time, flight.voltage) + noise(time, 0.01),
            Curr=np.maximum(0.0, share * (1.0 + noise(time, 0.02))),
            Temp=24.0 + 0.4 * (temperature - 24.0),
            CTot=0.25 * at(time, flight.used),
            MotTemp=temperature + noise(time, 0.15),
        )

    tables["IMU"], tables["VIBE"], tables["ESC"] = each("IMU", imu), each("VIBE", vibe), each("ESC", esc)

    time, stamp = stamps("ATT", 0.1)
    error = np.hypot(flight.roll_des - flight.roll, flight.pitch_des - flight.pitch)
    tables["ATT"] = records(
        "ATT",
        TimeUS=stamp,
        DesRoll=degrees(at(time, flight.roll_des)),
        Roll=degrees(at(time, flight.roll)),
        DesPitch=degrees(at(time, flight.pitch_des)),
        Pitch=degrees(at(time, flight.pitch)),
        DesYaw=flight.angle_at(time, degrees(flight.yaw_des) % 360.0),
        Yaw=flight.angle_at(time, flight.heading),
        ErrRP=degrees(at(time, error)) * 0.02,
        ErrYaw=np.abs(at(time, flight.r_des)) * 0.05,
        AEKF=np.full(time.size, 3),
    )

    time, stamp = stamps("RATE", 0.15)
    tables["RATE"] = records(
        "RATE",
        TimeUS=stamp,
        RDes=degrees(at(time, flight.p_des)),
        R=degrees(at(time, flight.p)),
        ROut=0.011 * at(time, flight.out_p),
        PDes=degrees(at(time, flight.q_des)),
        P=degrees(at(time, flight.q)),
        POut=0.011 * at(time, flight.out_q),
        YDes=degrees(at(time, flight.r_des)),
        Y=degrees(at(time, flight.r)),
        YOut=0.02 * at(time, flight.out_r),
        ADes=at(time, flight.vu_des),
        A=at(time, flight.accel_u),
        AOut=at(time, flight.throttle),
    )

    time, stamp = stamps("CTUN", 0.2)
    up, climb = at(time, flight.up), at(time, flight.vu)
    tables["CTUN"] = records(
        "CTUN",
        TimeUS=stamp,
        ThI=at(time, flight.throttle),
        ThO=at(time, flight.throttle),
        ThH=np.full(time.size, HOVER),
        DAlt=at(time, flight.up_des),
        Alt=up,
        BAlt=up + noise(time, 0.12),
        DCRt=100 * at(time, flight.vu_des),
        CRt=100 * climb,
    )

    time, stamp = stamps("RCOU", 0.3)
    pulses = {f"C{i + 1}": 1000 + 1000 * at(time, flight.motors[i]) + noise(time, 1.0) for i in range(4)}
    tables["RCOU"] = records("RCOU", TimeUS=stamp, **pulses)

    def position(time, spread):
        north = at(time, flight.north) + noise(time, spread)
        east = at(time, flight.east) + noise(time, spread)
        return HOME[0] + north / 111_320.0, HOME[1] + east / (111_320.0 * math.cos(math.radians(HOME[0])))

    time, stamp = stamps("GPS", 0.4)
    latitude, longitude = position(time, 0.25)
    course = degrees(np.arctan2(flight.ve, flight.vn)) % 360.0
    tables["GPS"] = records(
        "GPS",
        TimeUS=stamp,
        Status=np.full(time.size, 3),
        GMS=(GPS_SECOND + time) * 1000,
        GWk=np.full(time.size, GPS_WEEK),
        NSats=17 + np.rint(np.sin(time / 90.0)),
        HDop=0.68 + 0.05 * np.sin(time / 70.0),
        Lat=latitude,
        Lng=longitude,
        Alt=HOME[2] + at(time, flight.up) + noise(time, 0.4),
        Spd=np.abs(at(time, flight.ground_speed) + noise(time, 0.05)),
        GCrs=flight.angle_at(time, course),
        VZ=-at(time, flight.vu) + noise(time, 0.06),
        U=np.ones(time.size),
    )

    time, stamp = stamps("POS", 0.5)
    latitude, longitude = position(time, 0.02)
    up = at(time, flight.up)
    tables["POS"] = records(
        "POS", TimeUS=stamp, Lat=latitude, Lng=longitude, Alt=HOME[2] + up, RelHomeAlt=up, RelOriginAlt=up
    )

    time, stamp = stamps("BARO", 0.6)
    height = at(time, flight.up) + noise(time, 0.12)
    tables["BARO"] = records(
        "BARO",
        TimeUS=stamp,
        Alt=height,
        Press=95_600.0 * (1.0 - 2.25577e-5 * height) ** 5.25588,
        Temp=29.0 + 3.0 * np.exp(-time / 200.0),
        CRt=at(time, flight.vu) + noise(time, 0.05),
        SMS=(time + BOOT) * 1000,
        GndTemp=np.full(time.size, 27.5),
        Health=np.ones(time.size),
    )

    time, stamp = stamps("BAT", 0.7)
    used = at(time, flight.used)
    tables["BAT"] = records(
        "BAT",
        TimeUS=stamp,
        Volt=at(time, flight.voltage) + noise(time, 0.012),
        VoltR=at(time, flight.rest_voltage),
        Curr=np.maximum(0.0, at(time, flight.current) + noise(time, 0.25)),
        CurrTot=used,
        EnrgTot=0.0148 * used,
        Temp=26.0 + 0.0016 * used,
        Res=np.full(time.size, 0.014),
        RemPct=at(time, flight.remaining),
    )

    time, stamp = stamps("POWR", 0.8)
    running, overload = flight.winch(time)
    flags = 3 + 8 * overload  # main and servo supply are there; the rail is overloaded
    tables["POWR"] = records(
        "POWR",
        TimeUS=stamp,
        Vcc=np.full(time.size, 5.06),
        VServo=np.where(running, SAGGED, RAIL),
        Flags=flags,
        AccFlags=np.bitwise_or.accumulate(flags),
    )
    return tables


def write_bin(path: Path, tables: dict[str, np.ndarray]) -> None:
    """Writes the declarations, then all records by time."""
    order, places = _merge(tables)
    sizes = np.concatenate([np.full(len(t), t.dtype.itemsize) for t in tables.values()])
    starts = np.empty(len(order), np.int64)
    ordered = sizes[order]
    starts[order] = np.cumsum(ordered) - ordered
    content = np.empty(int(sizes.sum()), np.uint8)
    for name, table in tables.items():
        width = table.dtype.itemsize
        rows = table.view(np.uint8).reshape(-1, width)
        targets = starts[places[name]]
        for first in range(0, len(table), 65536):
            part = slice(first, first + 65536)
            content[targets[part, None] + np.arange(width)] = rows[part]
    with open(path, "wb") as file:
        file.write(declarations().tobytes())
        file.write(content.tobytes())


def write_log(path: Path, tables: dict[str, np.ndarray]) -> None:
    """Writes the same as text: one line a record, fields separated by a comma and a space."""
    order, _ = _merge(tables)
    lines: list[str] = []
    for name, table in tables.items():
        lines += _lines(name, table)
    with open(path, "w", encoding="utf-8", newline="\n") as file:
        file.write("\n".join(_lines("FMT", declarations())) + "\n")
        file.write("\n".join([lines[i] for i in order.tolist()]) + "\n")


def _merge(tables):
    """The order of all records by time, and which positions before ordering are each message's."""
    times = np.concatenate([table["TimeUS"] for table in tables.values()])
    ends = np.cumsum([len(table) for table in tables.values()])
    places = {
        name: slice(end - len(table), end)
        for (name, table), end in zip(tables.items(), ends.tolist(), strict=True)
    }
    return np.argsort(times, kind="stable"), places


def _lines(name, table):
    columns, forms = [], []
    for letter, label in zip(MESSAGES[name][1], MESSAGES[name][2].split(","), strict=True):
        kind, steps, form = LETTERS[letter]
        values = table[label]
        if kind[0] == "S":
            columns.append([text.decode() for text in values.tolist()])
        else:
            columns.append((values / steps if steps != 1 else values).tolist())
        forms.append(form)
    form = ", ".join([name, *forms])
    return [form % row for row in zip(*columns, strict=True)]


def write_csv(path: Path, flight: Flight) -> None:
    """Writes the main quantities on one grid of 16 rows a second, so that every stamp is an exact double."""
    time = np.arange(0.0, flight.duration - 0.1, 1 / 16)
    at, rng = flight.at, np.random.default_rng(SEED + 1)
    running, overload = flight.winch(time)
    columns = {
        "time": time,
        "roll": np.degrees(at(time, flight.roll)),
        "pitch": np.degrees(at(time, flight.pitch)),
        "heading": flight.angle_at(time, flight.heading),
        "north": at(time, flight.north),
        "east": at(time, flight.east),
        "altitude": at(time, flight.up),
        "climb_rate": at(time, flight.vu),
        "ground_speed": at(time, flight.ground_speed),
        "wind_speed": np.hypot(at(time, flight.wind_n), at(time, flight.wind_e)),
        "throttle": at(time, flight.throttle),
        "voltage": at(time, flight.voltage) + 0.01 * rng.standard_normal(time.size),
        "current": np.maximum(0.0, at(time, flight.current) + 0.2 * rng.standard_normal(time.size)),
        "vibration": np.abs(at(time, flight.shaking) * (1.0 + 0.07 * rng.standard_normal(time.size))),
        "motor_temperature": at(time, flight.temperatures[FAULTY]),
        "rail_voltage": np.where(running, SAGGED, RAIL),
        "overload": overload,
    }
    form = ",".join(["%.4f"] * len(columns))
    rows = zip(*(values.tolist() for values in columns.values()), strict=True)
    with open(path, "w", encoding="utf-8", newline="\n") as file:
        file.write(",".join(columns) + "\n")
        file.writelines(form % row + "\n" for row in rows)


def bytes_a_second(imu_hz: float) -> float:
    rates = {name: imu_hz if name == "IMU" else message[3] for name, message in MESSAGES.items()}
    return sum(hz * INSTANCES.get(name, 1) * record_type(name).itemsize for name, hz in rates.items())


def write_flight(folder, minutes=12, forms=("bin", "log", "csv"), imu_hz=100.0) -> dict[str, Path]:
    """Writes the flight into `folder` in each of the forms; returns the paths by form."""
    unknown = set(forms) - {"bin", "log", "csv"}
    if unknown:
        raise ValueError(f"no form {', '.join(sorted(unknown))}: use bin, log or csv")
    if minutes < 5:
        raise ValueError("the flight needs at least 5 minutes")
    folder = Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    flight = Flight(minutes)
    paths = {form: folder / f"sample_flight.{form}" for form in forms}
    if "bin" in paths or "log" in paths:
        tables = log_records(flight, imu_hz)
    if "bin" in paths:
        write_bin(paths["bin"], tables)
    if "log" in paths:
        write_log(paths["log"], tables)
    if "csv" in paths:
        write_csv(paths["csv"], flight)
    return paths


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("folder", type=Path, metavar="OUTDIR")
    parser.add_argument("--minutes", type=float, default=12.0)
    parser.add_argument("--forms", default="bin,log,csv")
    parser.add_argument("--megabytes", type=float, help="size of the binary log, instead of --minutes")
    options = parser.parse_args()
    minutes, imu_hz = options.minutes, 100.0
    if options.megabytes:
        imu_hz = 400.0
        minutes = options.megabytes * 1e6 / bytes_a_second(imu_hz) / 60.0
    try:
        paths = write_flight(options.folder, minutes, options.forms.split(","), imu_hz)
    except ValueError as problem:
        parser.error(str(problem))
    for path in paths.values():
        print(f"{path}  {path.stat().st_size / 1e6:.1f} MB")


if __name__ == "__main__":
    main()
