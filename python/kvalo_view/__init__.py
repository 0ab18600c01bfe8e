"""Charts for scripts of kvalo that run without another program: pictures in files, in notebooks, and a live page.

Importing this package makes it the host of this process, unless another program is that already. kvalo does
so by itself when the first chart is asked for.
"""

from kvalo_view import host
from kvalo_view.live import follow
from kvalo_view.page_server import address, save_page, show
from kvalo_view.pictures import figures

__all__ = ["address", "figures", "follow", "save_page", "show"]

host.install()
