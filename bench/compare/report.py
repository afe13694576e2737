"""The table: what, ours, reference, ratio, goal, met."""

import json


class Report:
    def __init__(self):
        self.rows = []
        self.details = {}

    def ratio(self, what, ours, reference, unit, goal, commands, at_least=False):
        """A goal for ours divided by the reference."""
        value = ours / reference
        met = value >= goal if at_least else value <= goal
        self._add(what, ours, reference, unit, value, f"{'>=' if at_least else '<='} {goal:g} x", met, commands)

    def limit(self, what, ours, limit, unit, commands):
        """A goal for the figure itself."""
        self._add(what, ours, None, unit, None, f"<= {limit:g} {unit}".rstrip(), ours <= limit, commands)

    def missing(self, what, goal, reason):
        self.rows.append({"what": what, "goal": goal, "met": None, "reason": reason})

    def _add(self, what, ours, reference, unit, ratio, goal, met, commands):
        self.rows.append({"what": what, "ours": ours, "reference": reference, "unit": unit, "ratio": ratio,
                          "goal": goal, "met": met, "commands": commands})

    def table(self):
        lines = [("what", "ours", "reference", "ratio", "goal", "met")]
        for row in self.rows:
            if row["met"] is None:
                lines.append((row["what"], "-", "-", "-", row["goal"], f"not measured: {row['reason']}"))
                continue
            unit = row["unit"]
            lines.append((row["what"], number(row["ours"], unit), number(row["reference"], unit),
                          number(row["ratio"], ""), row["goal"], "yes" if row["met"] else "NO"))
        widths = [max(len(line[column]) for line in lines) for column in range(5)]
        return "\n".join("  ".join([cell.ljust(width) for cell, width in zip(line, widths)] + [line[5]])
                         for line in lines)

    def write(self, path, machine):
        with open(path, "w") as file:
            json.dump({"machine": machine, "rows": self.rows, "details": self.details}, file, indent=2)
            file.write("\n")


def number(value, unit):
    if value is None:
        return "-"
    text = f"{value:.0f}" if abs(value) >= 1000 else f"{value:.3g}"
    return f"{text} {unit}".rstrip()
