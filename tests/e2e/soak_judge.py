"""What scripts/soak recorded, held against what it must be.

After the first ten minutes (WARM) own memory may not be GROWTH kB higher at any sample than it was
then; the lowest number of descriptors, of sockets and of threads in the last quarter may not be above
that in the first. A gap between two messages may last GAP seconds, unless it touches a fault: a
switch of the default and the two seconds after it, a killed server from then until five seconds
after it is back. There are faults in the scenario "switches" alone: consumers are none. A gap is the
machine's, and counted apart, if no more than that is left of it without the time in which a bare timer
of the run did not run either, or another scenario's consumer waited as well: the three copies of the
program share nothing but the machine. Of the messages 1 of 100 may be missing, besides what the bare
timer missed as well; of 100 that come 99 must have the tone in them where it plays all the time, and
where it moves it must be found again before it moves on.
"""
import csv
import os
import statistics

WARM = 600
GROWTH = 256
GAP = 0.25
RECOVERY = {"switch": 2, "kill": 5}
STEP = 0.02
ENOUGH = 8  # samples after the first ten minutes, to speak of growth
COUNTS = ("descriptors", "sockets", "threads")


class Unreadable(Exception):
    """The folder has no record of a run."""


class Scenario:
    def __init__(self, folder):
        self.name = os.path.basename(folder)
        try:
            self.samples = [{name: float(text) for name, text in row.items()}
                            for row in self._rows(folder, "samples.csv")]
            self.events = [(float(row["begin"]), float(row["end"]), row["kind"], row["text"])
                           for row in self._rows(folder, "events.csv")]
        except (OSError, KeyError, TypeError, ValueError) as failure:
            raise Unreadable(f"no record of a run in {folder}: {failure}") from None
        self.clock = next((float(event[3]) for event in self.of_kind("clock")), None)
        self.lines = []  # passed (None: not judged), text

    @staticmethod
    def _rows(folder, name):
        with open(os.path.join(folder, name), newline="", encoding="utf-8") as file:
            return list(csv.DictReader(file))

    def of_kind(self, kind):
        return [event for event in self.events if event[2] == kind]

    def add(self, passed, text):
        self.lines.append((passed, text))

    def lateness(self, others):
        """When the machine was late, by all that tells, in seconds of this scenario."""
        intervals = [event[:2] for event in self.of_kind("late")]
        for other in others:
            if None not in (self.clock, other.clock):
                shift = other.clock - self.clock
                intervals += [(begin + shift, end + shift) for begin, end, kind, _ in other.events
                              if kind in ("late", "gap")]
        return intervals

    def judge(self, others):
        self.judge_process()
        if len(self.samples) > 1:
            self.judge_growth()
            self.judge_gaps(self.lateness(others))
            self.judge_messages()
            self.judge_tone()
        else:
            self.add(False, "there are no samples")

    def judge_process(self):
        for _, _, _, text in self.of_kind("failed"):
            self.add(False, f"the scenario could not go on: {text}")
        ends = self.of_kind("exit")
        if ends:
            begin, end, _, code = ends[-1]
            self.add(code == "0", f"exit code on SIGTERM: {code}, after {end - begin:.2f} s")
            left = [event[3] for event in self.of_kind("left")]
            self.add(not left, f"files left behind: {', '.join(left) or 'none'}")
        else:
            self.add(False, "the run has not come to its end")
        pids = {f"{sample['pid']:.0f}" for sample in self.samples}
        pids |= {event[3].split()[-1] for event in self.of_kind("start")}
        self.add(len(pids) == 1, f"processes that answered: {len(pids)}, id {', '.join(sorted(pids))}")

    def judge_growth(self):
        samples = [sample for sample in self.samples if sample["seconds"] >= WARM]
        if len(samples) < ENOUGH:
            self.add(None, "growth: the run is too short to tell")
            return
        memory = [sample["anonymous_kb"] for sample in samples]
        begin, end, most = memory[0], memory[-1], max(memory)
        self.add(most - begin < GROWTH, f"own memory after {samples[0]['seconds'] / 60:.0f} min {begin:.0f} kB, "
                 f"at the end {end:.0f} ({end - begin:+.0f}), at most {most:.0f} ({most - begin:+.0f})")
        quarter = len(samples) // 4
        for name in COUNTS:
            first, last = (min(sample[name] for sample in part) for part in (samples[:quarter], samples[-quarter:]))
            self.add(last <= first, f"{name}: {first:.0f}, in the end {last:.0f}")
        others = (f"{text} {samples[0][name]:.0f}, in the end {samples[-1][name]:.0f} kB" for name, text in
                  (("rss_file_kb", "programs and libraries"), ("rss_shmem_kb", "shared with the sound server")))
        self.add(None, f"for information: {'; '.join(others)}")

    def judge_gaps(self, late):
        faults = [(begin, end + RECOVERY[text]) for begin, end, _, text in self.of_kind("fault")]
        causes = {"a fault": [], "the machine": [], "nothing known": []}
        for begin, end in (event[:2] for event in self.of_kind("gap") if event[1] - event[0] > GAP):
            if any(begin < fault[1] and end > fault[0] for fault in faults):
                cause = "a fault"
            elif end - begin - overlap(begin, end, late) <= GAP:
                cause = "the machine"
            else:
                cause = "nothing known"
            causes[cause].append(end - begin)
        longest = max(sample["longest_gap_ms"] for sample in self.samples)
        control = max(sample["control_gap_ms"] for sample in self.samples)
        counts = ", ".join(f"{len(gaps)} by {cause}" + (f" (up to {1000 * max(gaps):.0f} ms)" if gaps else "")
                           for cause, gaps in causes.items())
        self.add(not causes["nothing known"],
                 f"longest gap {longest:.0f} ms, of the bare timer {control:.0f}; over {1000 * GAP:.0f} ms: {counts}")

    def judge_messages(self):
        first, last = self.samples[0], self.samples[-1]
        came = last["messages"] - first["messages"]
        expected = (last["seconds"] - first["seconds"]) / STEP
        missed = sum(round((end - begin) / STEP) - 1 for begin, end, _, _ in self.of_kind("late")
                     if begin >= first["seconds"])
        self.add(expected - came - missed <= 0.01 * expected,
                 f"{came:.0f} messages, {50 * came / expected:.2f} a second; {expected - came:.0f} missing, "
                 f"the bare timer missed {missed}")

    def judge_tone(self):
        followed = sorted(end - begin for begin, end, _, _ in self.of_kind("followed"))
        if not followed:
            last = self.samples[-1]
            self.add(last["messages"] > 0 and last["tone"] >= 0.99 * last["messages"],
                     f"{last['tone']:.0f} of {last['messages']:.0f} messages have the tone in them")
            return
        kills = sum(event[3] == "kill" for event in self.of_kind("fault"))
        lost = self.of_kind("unfollowed")
        self.add(not lost, f"{len(self.of_kind('fault')) - kills} switches, {kills} killed servers: the tone was "
                 f"found again {len(followed)} times, after {statistics.median(followed):.2f} s by the median, "
                 f"{followed[-1]:.2f} s at most; {len(lost)} times not"
                 + "".join(f" (after {event[3]} at {event[0]:.0f} s)" for event in lost))


def overlap(begin, end, intervals):
    """How much of it the intervals cover, which may overlap each other."""
    covered = 0
    for first, last in sorted(intervals):
        first, last = max(begin, first), min(end, last)
        if last > first:
            covered += last - first
            begin = last
    return covered


def judge(scenarios):
    """Prints the verdicts; whether nothing has failed."""
    passed = True
    for scenario in scenarios:
        scenario.judge([other for other in scenarios if other is not scenario])
        samples = scenario.samples
        if samples:
            load = [sample["load"] for sample in samples]
            print(f"{scenario.name}: {samples[-1]['seconds'] / 60:.1f} min, {len(samples)} samples, "
                  f"load {statistics.mean(load):.1f} on average, {max(load):.1f} at most, "
                  f"{samples[-1]['faults']:.0f} faults, {samples[-1]['cpu_s']:.0f} s of processor time")
        else:
            print(f"{scenario.name}:")
        for fine, text in scenario.lines:
            print(f"  {'-' if fine is None else 'ok' if fine else 'FAILED':6}  {text}")
            passed = passed and fine is not False
    return passed
