# SPDX-License-Identifier: Apache-2.0
"""A terminal's screen: pyte, with two sequences that it does not know and that programs draw with, a character that repeats
itself and lines that scroll up.
"""
import pyte


class Screen(pyte.Screen):
    drawn = " "

    def draw(self, data):
        super().draw(data)
        self.drawn = data[-1:]

    def repeat(self, count=None):
        self.draw(self.drawn * (count or 1))

    def scroll_up(self, count=None):
        line = self.cursor.y
        self.cursor.y = self.margins.bottom if self.margins else self.lines - 1
        for _ in range(count or 1):
            self.index()
        self.cursor.y = line


class Stream(pyte.ByteStream):
    csi = {**pyte.ByteStream.csi, "b": "repeat", "S": "scroll_up"}
    events = pyte.ByteStream.events | {"repeat", "scroll_up"}
