#!/usr/bin/env python3
"""Makes courtyard.obj, the model of the demo: metres, z up, +Y to the north.

A ring of four wings around a court, a tower on its south-west corner, a pitched roof on the north
wing, a hall with a single sloping roof beside it, and trees as porous screens of leaves. Faces carry
the material "surface" where sensors make sense and "screen" where they only cast shade; every part
is an object of its own, so that it can be selected by name; walls are named after the way they face.

Usage: make_model.py > courtyard.obj        (the same bytes every time)
"""

import math
import random

# The ring on plan. The south wing is low, so that the winter sun and the viewer look into the court.
X = [-38.0, -24.0, -13.0, 13.0, 24.0, 31.0, 44.0, 52.0]
Y = [-35.0, -20.0, -9.0, 9.0, 20.0, 36.0]
SOUTH_WING, WINGS, TOWER = 7.0, 11.0, 26.0
RIDGE = 15.5                # of the north wing's roof, over its eaves at WINGS
HALL_LOW, HALL_HIGH = 4.5, 10.5

# Height of each plan field, row by row from the south; None is built by hand.
HALL = None
PLAN = [
    #  west    wing     south/court/north  wing   path  hall  east
    [0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0],
    [0.0, TOWER, SOUTH_WING, WINGS, 0.0, 0.0, 0.0],
    [0.0, WINGS, 0.0, WINGS, 0.0, HALL, 0.0],
    [0.0, WINGS, WINGS, WINGS, 0.0, 0.0, 0.0],
    [0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0],
]
COURT = (2, 2)
NORTH_WING_ROW = 3


class Model:
    """Objects with faces; vertices are shared by position."""

    def __init__(self):
        self.vertices = {}
        self.objects = {}

    def face(self, name, corners, material="surface"):
        """One polygon, counter-clockwise as seen from outside."""
        indices = []
        for corner in corners:
            key = tuple(round(c, 3) + 0.0 for c in corner)
            indices.append(self.vertices.setdefault(key, len(self.vertices) + 1))
        self.objects.setdefault((name, material), []).append(indices)

    def wall(self, name, start, end, low, high):
        """An upright rectangle over the plan line start-end; its outside is to the right of it."""
        (x0, y0), (x1, y1) = start, end
        self.face(name, [(x0, y0, low), (x1, y1, low), (x1, y1, high), (x0, y0, high)])

    def text(self):
        lines = ["# The courtyard of the demo: metres, z up, +Y north. Made by make_model.py."]
        lines += [f"v {x:g} {y:g} {z:g}" for x, y, z in self.vertices]
        for (name, material), faces in self.objects.items():
            lines += [f"o {name}", f"usemtl {material}"]
            lines += ["f " + " ".join(map(str, face)) for face in faces]
        return "\n".join(lines) + "\n"


def add_fields(model):
    """Ground and flat roofs, and the walls between fields of different height."""
    for row in range(len(PLAN)):
        for column in range(len(PLAN[row])):
            height = PLAN[row][column]
            if height is None or (row == NORTH_WING_ROW and 1 <= column <= 3):
                continue
            if height == 0.0:
                name = "court" if (row, column) == COURT else "ground"
            else:
                name = "roof_tower" if height == TOWER else "roof_flat"
            x0, x1, y0, y1 = X[column], X[column + 1], Y[row], Y[row + 1]
            model.face(name, [(x0, y0, height), (x1, y0, height), (x1, y1, height), (x0, y1, height)])

    def wall_name(low_field, high, side):
        if high == TOWER:
            return f"tower_{side}"
        return f"court_wall_{side}" if low_field == COURT else f"wall_{side}"

    for row in range(len(PLAN)):
        for column in range(len(PLAN[row])):
            here = PLAN[row][column]
            x0, x1, y0, y1 = X[column], X[column + 1], Y[row], Y[row + 1]
            # The field's four sides, walked so that the outside is to the right.
            sides = [("south", (row - 1, column), (x0, y0), (x1, y0)),
                     ("east", (row, column + 1), (x1, y0), (x1, y1)),
                     ("north", (row + 1, column), (x1, y1), (x0, y1)),
                     ("west", (row, column - 1), (x0, y1), (x0, y0))]
            for side, (r, c), start, end in sides:
                if here is None or not (0 <= r < len(PLAN) and 0 <= c < len(PLAN[r])):
                    continue
                there = PLAN[r][c]
                if there is not None and here > there:
                    model.wall(wall_name((r, c), here, side), start, end, there, here)


def add_north_roof(model):
    """A pitched roof, ridge from west to east."""
    x0, x1, y0, y1 = X[1], X[4], Y[3], Y[4]
    middle = (y0 + y1) / 2
    model.face("roof_pitched_south", [(x0, y0, WINGS), (x1, y0, WINGS), (x1, middle, RIDGE), (x0, middle, RIDGE)])
    model.face("roof_pitched_north", [(x1, y1, WINGS), (x0, y1, WINGS), (x0, middle, RIDGE), (x1, middle, RIDGE)])
    model.face("wall_west", [(x0, y1, WINGS), (x0, y0, WINGS), (x0, middle, RIDGE)])
    model.face("wall_east", [(x1, y0, WINGS), (x1, y1, WINGS), (x1, middle, RIDGE)])


def add_hall(model):
    """A hall whose one roof slopes down to the south."""
    x0, x1, y0, y1 = X[5], X[6], Y[2], Y[3]
    low, high = HALL_LOW, HALL_HIGH
    model.face("roof_hall", [(x0, y0, low), (x1, y0, low), (x1, y1, high), (x0, y1, high)])
    model.wall("hall_walls", (x0, y0), (x1, y0), 0.0, low)
    model.wall("hall_walls", (x1, y1), (x0, y1), 0.0, high)
    model.face("hall_walls", [(x1, y0, 0), (x1, y1, 0), (x1, y1, high), (x1, y0, low)])
    model.face("hall_walls", [(x0, y1, 0), (x0, y0, 0), (x0, y0, low), (x0, y1, high)])


def add_tree(model, name, rng, x, y, height, radius):
    """A trunk and a crown of loose leaves: about half of the sun comes through."""
    trunk = 0.35 * height
    for dx, dy in ((0.25, 0.0), (0.0, 0.25)):  # two crossed boards: no sensor gets caught inside
        model.face(name, [(x - dx, y - dy, 0.0), (x + dx, y + dy, 0.0),
                          (x + dx, y + dy, trunk), (x - dx, y - dy, trunk)], "screen")
    middle = trunk + 0.5 * (height - trunk)
    for _ in range(130):
        # Leaves near the crown's surface, each a square that lies about along it.
        z, turn = rng.uniform(-0.95, 1.0), rng.uniform(0.0, 2.0 * math.pi)
        out = (math.sqrt(1 - z * z) * math.cos(turn), math.sqrt(1 - z * z) * math.sin(turn), z)
        depth = rng.uniform(0.6, 1.0)
        center = (x + radius * depth * out[0], y + radius * depth * out[1],
                  middle + 0.5 * (height - trunk) * depth * out[2])
        tilt = [out[k] + rng.uniform(-0.5, 0.5) for k in range(3)]
        u = normalized(cross(tilt, (0.3, 0.2, 0.93)))
        v = normalized(cross(tilt, u))
        half = rng.uniform(0.28, 0.45)
        corners = [tuple(center[k] + half * (su * u[k] + sv * v[k]) for k in range(3))
                   for su, sv in ((-1, -1), (1, -1), (1, 1), (-1, 1))]
        model.face(name, corners, "screen")


def cross(a, b):
    return (a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0])


def normalized(v):
    length = math.sqrt(sum(c * c for c in v))
    return tuple(c / length for c in v)


def main():
    model = Model()
    add_fields(model)
    add_north_roof(model)
    add_hall(model)
    rng = random.Random(47)
    places = [(-6.0, -27.0), (2.5, -28.0), (11.0, -27.0), (19.5, -28.0), (6.5, 1.5),
              (38.0, -18.0), (48.5, -12.0), (-31.0, -27.0)]
    for number, (x, y) in enumerate(places, 1):
        add_tree(model, f"tree_{number}", rng, x, y, rng.uniform(7.5, 9.5), rng.uniform(2.4, 3.1))
    print(model.text(), end="")


if __name__ == "__main__":
    main()
