"""A picture of switches that are provisioned over time."""
COLOURS = ("#2563eb", "#dc2626", "#059669", "#d97706", "#7c3aed", "#0891b2")
WIDTH, HEIGHT, LEFT, TOP, RIGHT, BOTTOM = 760, 360, 60, 20, 180, 46
STYLE = ("text{font:12px sans-serif;fill:#374151}.axis{stroke:#9ca3af}.grid{stroke:#9ca3af;stroke-opacity:.3}"
         "@media(prefers-color-scheme:dark){text{fill:#d1d5db}}")


def rounded_up(value):
    """The next value of 1, 2 or 5 times a power of ten."""
    step = 1
    while True:
        for factor in (1, 2, 5):
            if value <= factor * step:
                return factor * step
        step *= 10


def svg(curves):
    """`curves` has, for each name, how many switches there are and the times in seconds at which one was provisioned."""
    last = rounded_up(max((times[-1] for _, times in curves.values() if times), default=1))
    across, down = WIDTH - LEFT - RIGHT, HEIGHT - TOP - BOTTOM

    def x(seconds):
        return LEFT + across * seconds / last

    def y(share):
        return TOP + down * (1 - share)

    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" role="img"><style>{STYLE}</style>',
             "<title>Switches that are provisioned, over time</title>"]
    for tenth in range(0, 11, 2):
        parts.append(f'<path class="grid" d="M{LEFT} {y(tenth / 10):.1f}H{LEFT + across}"/>'
                     f'<text x="{LEFT - 8}" y="{y(tenth / 10) + 4:.1f}" text-anchor="end">{tenth * 10} %</text>')
    for fifth in range(6):
        seconds = last * fifth / 5
        parts.append(f'<path class="grid" d="M{x(seconds):.1f} {TOP}V{TOP + down}"/>'
                     f'<text x="{x(seconds):.1f}" y="{TOP + down + 18}" text-anchor="middle">{seconds:g} s</text>')
    parts.append(f'<path class="axis" fill="none" d="M{LEFT} {TOP}V{TOP + down}H{LEFT + across}"/>'
                 f'<text x="{LEFT + across / 2}" y="{HEIGHT - 8}" text-anchor="middle">since the first one was started</text>')
    for index, (name, (switches, times)) in enumerate(curves.items()):
        colour, line = COLOURS[index % len(COLOURS)], f"M{x(0):.1f} {y(0):.1f}"
        highest = {f"{x(seconds):.1f}": number for number, seconds in enumerate(times, 1)}  # at each tenth of a pixel
        line += "".join(f"H{at}V{y(number / switches):.1f}" for at, number in highest.items())
        parts.append(f'<path fill="none" stroke="{colour}" stroke-width="2" d="{line}H{x(last):.1f}"/>'
                     f'<path stroke="{colour}" stroke-width="3" d="M{WIDTH - RIGHT + 14} {TOP + 20 * index + 8}h18"/>'
                     f'<text x="{WIDTH - RIGHT + 38}" y="{TOP + 20 * index + 12}">{name}</text>')
    return "\n".join([*parts, "</svg>"]) + "\n"
