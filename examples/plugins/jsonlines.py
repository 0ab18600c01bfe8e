"""A plug-in in Python: recordings of one JSON object a line, ".jsonl".

    {"t": 0.0, "engine": {"rpm": 900, "temp": 20.5}, "speed": 0}
    {"t": 0.1, "engine": {"rpm": 950}, "speed": 0.2}

The member named by the setting "jsonlines_time" (default "t") is the time in seconds. Objects within become
groups: engine.rpm, engine.temp, speed. A line may lack any of them.

Use it: kvalo.Container(path="run.jsonl", plugin="./jsonlines.py"), or put it into the folder plugins/.
"""

import json

_recordings = {}  # by path: variable name to (times, values)


def is_compatible(path):
    return path.endswith(".jsonl")


def config_keys():
    return ["jsonlines_time"]


def init(path, values):
    time_key = "t" if values[0] == "empty" else values[0]
    columns = {}
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, start=1):
            if not line.strip():
                continue
            try:
                record = json.loads(line)
                time = float(record.pop(time_key))
            except (ValueError, KeyError, TypeError, AttributeError) as error:
                raise ValueError(f"line {number} of {path} cannot be used: {error!r}") from error
            for name, value in _leaves(record, ""):
                times, samples = columns.setdefault(name, ([], []))
                times.append(time)
                samples.append(value)
    _recordings[path] = columns
    return 0


def list_names(path):
    return list(_recordings[path])


def load(path, name):
    if name not in _recordings[path]:
        raise KeyError(f"{name} is a group: load one of its members")
    return _recordings[path][name]


def terminate(path):
    _recordings.pop(path, None)


def _leaves(record, prefix):
    for name, value in record.items():
        if isinstance(value, dict):
            yield from _leaves(value, f"{prefix}{name}.")
        elif isinstance(value, (int, float)):
            yield prefix + name, value
