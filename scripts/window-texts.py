#!/usr/bin/python3
"""Reads what the Salvora 3 window shows through the accessibility bus (AT-SPI), the way a
screen reader does, and can pick a volume in its pop-up like a user. Needs the packages
at-spi2-core, python3-gi and gir1.2-atspi-2.0, and the window started with
QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1 on the same session bus (Qt turns accessibility on by itself
only when an assistive technology asks for it).

Usage: window-texts.py show                 JSON: shown windows, volume, contents and day rows, labels
       window-texts.py select-volume TITLE  picks TITLE in the volume pop-up; exit 1 if it cannot
"""
import json
import sys
import time

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi  # noqa: E402

APP_NAME = "Salvora 3"


def children(node):
    for i in range(node.get_child_count()):
        child = node.get_child_at_index(i)
        if child is not None:
            yield child


def find_all(node, predicate, depth=0):
    # The window's tree is shallow; the depth limit only guards against a cycle.
    if depth > 30:
        return
    if predicate(node):
        yield node
    for child in children(node):
        yield from find_all(child, predicate, depth + 1)


def showing(node):
    return node.get_state_set().contains(Atspi.StateType.SHOWING)


def application():
    desktop = Atspi.get_desktop(0)
    for app in children(desktop):
        if app.get_name() == APP_NAME:
            return app
    return None


def table_rows(table):
    iface = table.get_table_iface() if hasattr(table, "get_table_iface") else table
    rows = []
    for r in range(iface.get_n_rows()):
        cells = []
        for c in range(iface.get_n_columns()):
            cell = iface.get_accessible_at(r, c)
            cells.append(cell.get_name() if cell is not None else "")
        rows.append(cells)
    return rows


def headers(table):
    return [c.get_name() for c in children(table) if c.get_role() == Atspi.Role.TABLE_COLUMN_HEADER]


def show(app):
    windows = [{"role": w.get_role_name(), "title": w.get_name()} for w in children(app) if showing(w)]
    result = {"windows": windows, "volume": None, "contents": None, "days": None, "labels": []}
    frames = [w for w in children(app) if w.get_role() == Atspi.Role.FRAME]
    if not frames:
        return result
    frame = frames[0]
    combos = list(find_all(frame, lambda n: n.get_role() == Atspi.Role.COMBO_BOX))
    if combos:
        result["volume"] = combos[0].get_name()
    for table in find_all(frame, lambda n: n.get_role() == Atspi.Role.TABLE):
        names = headers(table)
        if names and names[0] == "Name":
            result["contents"] = table_rows(table)
        elif names and names[0] == "Date":
            result["days"] = table_rows(table)
    result["labels"] = [
        n.get_name()
        for n in find_all(frame, lambda n: n.get_role() == Atspi.Role.LABEL)
        if n.get_name() and showing(n)
    ]
    return result


def select_volume(app, title):
    combo = next(find_all(app, lambda n: n.get_role() == Atspi.Role.COMBO_BOX), None)
    if combo is None:
        return False
    if combo.get_name() == title:
        return True
    items = [i.get_name() for i in find_all(combo, lambda n: n.get_role() == Atspi.Role.LIST_ITEM)]
    if title not in items:
        print(f"window-texts: no volume {title!r} in the pop-up: {items}", file=sys.stderr)
        return False
    # A click on the pop-up, then on the item, as a user picks it: the window acts on the
    # activation, which a programmatic selection would not give.
    action = combo.get_action_iface()
    names = [action.get_action_name(i) for i in range(action.get_n_actions())]
    action.do_action(names.index("ShowMenu") if "ShowMenu" in names else 0)
    deadline = time.monotonic() + 5
    while time.monotonic() < deadline:
        item = next(
            find_all(combo, lambda n: n.get_role() == Atspi.Role.LIST_ITEM and n.get_name() == title and showing(n)),
            None,
        )
        if item is not None:
            box = item.get_extents(Atspi.CoordType.SCREEN)
            if box.width > 0 and box.height > 0:
                Atspi.generate_mouse_event(box.x + box.width // 2, box.y + box.height // 2, "b1c")
                break
        time.sleep(0.1)
    deadline = time.monotonic() + 5
    while time.monotonic() < deadline:
        if combo.get_name() == title:
            return True
        time.sleep(0.1)
    return False


def main(argv):
    if len(argv) < 2 or argv[1] not in ("show", "select-volume") or (argv[1] == "select-volume") != (len(argv) == 3):
        print(__doc__.split("\n\n")[1], file=sys.stderr)
        return 2
    Atspi.init()
    app = None
    deadline = time.monotonic() + 10
    while app is None and time.monotonic() < deadline:
        app = application()
        if app is None:
            time.sleep(0.2)
    if app is None:
        print("window-texts: the window is not on the accessibility bus", file=sys.stderr)
        return 1
    if argv[1] == "show":
        print(json.dumps(show(app), ensure_ascii=False))
        return 0
    return 0 if select_volume(app, argv[2]) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv))
