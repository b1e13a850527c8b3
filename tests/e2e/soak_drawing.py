"""A picture of what scripts/soak recorded: own memory, and the longest gap of every half minute."""
WIDTH, HEIGHT, LEFT, TOP, ROW = 900, 170, 70, 40, 220
COLOURS = {"anonymous_kb": "#1f5fa8", "longest_gap_ms": "#c0392b", "control_gap_ms": "#999999"}


def points(samples, name, most):
    end = samples[-1]["seconds"] or 1
    return " ".join(f"{LEFT + WIDTH * sample['seconds'] / end:.1f},"
                    f"{HEIGHT - HEIGHT * min(1, sample[name] / most):.1f}" for sample in samples)


def curve(samples, name, most):
    return (f'<polyline fill="none" stroke="{COLOURS[name]}" stroke-width="1.5" '
            f'points="{points(samples, name, most)}"/>')


def text(x, y, words, colour="#333333", anchor="start"):
    return f'<text x="{x}" y="{y}" fill="{colour}" text-anchor="{anchor}">{words}</text>'


def row(scenario):
    """One scenario: memory on the left scale, gaps on the right one."""
    samples = scenario.samples
    memory = 1.25 * max(sample["anonymous_kb"] for sample in samples)
    gap = max(250, *(sample[name] for sample in samples for name in ("longest_gap_ms", "control_gap_ms")))
    right = LEFT + WIDTH
    return "".join((
        f'<rect x="{LEFT}" y="0" width="{WIDTH}" height="{HEIGHT}" fill="none" stroke="#cccccc"/>',
        curve(samples, "control_gap_ms", gap), curve(samples, "longest_gap_ms", gap),
        curve(samples, "anonymous_kb", memory), text(LEFT, -8, scenario.name),
        text(LEFT - 5, 12, f"{memory:.0f} kB", COLOURS["anonymous_kb"], "end"),
        text(right + 5, 12, f"{gap:.0f} ms", COLOURS["longest_gap_ms"]),
        text(right, HEIGHT + 16, f"{samples[-1]['seconds'] / 60:.0f} min", anchor="end")))


def draw(scenarios, path):
    rows = [f'<g transform="translate(0 {TOP + ROW * i})">{row(scenario)}</g>'
            for i, scenario in enumerate(scenarios)]
    legend = text(LEFT, 18, "own memory", COLOURS["anonymous_kb"])
    legend += text(LEFT + 110, 18, "longest gap between messages", COLOURS["longest_gap_ms"])
    legend += text(LEFT + 320, 18, "longest gap of a bare 20 ms timer", COLOURS["control_gap_ms"])
    width, height = LEFT + WIDTH + 80, TOP + ROW * len(rows)
    with open(path, "w", encoding="utf-8") as file:
        file.write(f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
                   f'font-family="sans-serif" font-size="13"><rect width="100%" height="100%" fill="white"/>'
                   f'{legend}{"".join(rows)}</svg>\n')
