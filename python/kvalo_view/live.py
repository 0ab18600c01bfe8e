"""Moves charts on while a live source runs."""

import kvalo

from kvalo_view import state as states

# How a series of a kind of chart is sent again. Kinds that are computed from all samples are left alone.
SENDERS = {
    "line": lambda chart, obj, series: kvalo.plot(
        chart, obj, series["name"], series["side"], series["style"]
    ),
    "bool": lambda chart, obj, series: kvalo.boolplot(chart, obj, series["name"]),
}


def follow(container) -> int:
    """Reads what a live container has received and moves on the charts that show it; returns how many curves.

    Call it in place of the container's rt_read(), as often as the charts shall move:

        while kvalo_view.follow(log):
            time.sleep(0.05)
    """
    container.rt_read()
    own = [getattr(container, name) for name in dir(container)]
    members = {str(item.id64): item for item in own if isinstance(item, kvalo.TimeSeries)}
    sent = 0
    for chart in states.read()["charts"]:
        send = SENDERS.get(chart["kind"])
        for series in chart["series"] if send else []:
            if series["id"] in members:
                send(int(chart["id"]), members[series["id"]], series)
                sent += 1
    return sent
