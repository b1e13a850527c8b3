"""Runs the benchmarks and prints what they found beside what is to be reached.

usage: table.py PROGRAMS [--quick] [--hour]

PROGRAMS is the folder of the built programs. Each ratio is between figures of one run: medians of
repetitions that are interleaved at random. What is being measured is told on standard error, the
table comes last on standard output. --quick takes seconds instead of minutes and proves only
that everything runs. --hour watches the memory of the program for an hour. Ends with status 0
whatever was missed: the figures are for reading.
"""
import argparse
import json
import os
import subprocess
import sys
import time

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "process"))


class Progress:
    """Says on standard error what is measured now, how many of how many, since when."""

    def __init__(self, count):
        self.count = count
        self.done = 0
        self.begin = time.monotonic()

    def step(self, text):
        self.done += 1
        elapsed = int(time.monotonic() - self.begin)
        print(f"[{elapsed // 60}:{elapsed % 60:02}] {self.done} of {self.count}: {text}",
              file=sys.stderr, flush=True)


class Figures:
    """Medians of a Google Benchmark program by name."""

    def __init__(self, program, quick):
        options = ["--benchmark_format=json", "--benchmark_report_aggregates_only=true",
                   "--benchmark_enable_random_interleaving=true",
                   f"--benchmark_repetitions={3 if quick else 15}",
                   f"--benchmark_min_time={0.01 if quick else 0.1}"]
        done = subprocess.run([program, *options], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              check=True, text=True)
        self.medians = {entry["run_name"]: entry for entry in json.loads(done.stdout)["benchmarks"]
                        if entry["aggregate_name"] == "median"}

    def time(self, name):
        return self.medians[name]["cpu_time"]

    def ratio(self, name, other):
        return self.time(name) / self.time(other)

    def counter(self, name, counter):
        return self.medians[name][counter]


class Table:
    def __init__(self):
        self.rows = []

    def inform(self, what, beside, found):
        """A row without a target."""
        self.rows.append((what, beside, "", found, "for information"))

    def add(self, what, beside, target, found, reached):
        verdict = "not measured" if reached is None else "reached" if reached else "**missed**"
        self.rows.append((what, beside, target, found, verdict))

    def ratio(self, what, beside, limit, found, note=""):
        self.add(what, beside, f"≤ {limit:g} ×", f"{found:.2f} ×{note}", found <= limit)

    def show(self):
        print("| what | beside what | to reach | measured | |\n|---|---|---|---|---|")
        for row in self.rows:
            print("| " + " | ".join(row) + " |")
        sys.stdout.flush()


def has_avx2_and_fma():
    with open("/proc/cpuinfo") as file:
        flags = next((line.split() for line in file if line.startswith("flags")), [])
    return "avx2" in flags and "fma" in flags


ROOMS = {"bench_fft": "the transform", "bench_fft_sse2": "the transform without AVX",
         "bench_spectrum": "analysis, post-processing and levels",
         "bench_conversion": "conversion of packets", "bench_message": "the message"}
PROCESSES = 3  # steps of add_processes, one more with --hour


def add_rooms(table, programs, quick, progress):
    figures = []
    for name, text in ROOMS.items():
        progress.step(text)
        figures.append(Figures(os.path.join(programs, name), quick))
    fft, fft_sse2, spectrum, conversion, message = figures
    kinds = [("sse2", "SSE2 only, as FFTW here", 1.2, fft_sse2)]
    if has_avx2_and_fma():
        kinds.insert(0, ("avx2", "AVX2 and FMA", 0.8, fft))
    for unit, text, limit, figures in kinds:
        table.ratio(f"real transform, 2048 points, {text}", "FFTW, FFTW_MEASURE", limit,
                    figures.ratio(f"fft2048/ours_{unit}", "fft2048/fftw"))
        ours, other = (figures.counter(f"fft2048/{name}", "relative_rms_error")
                       for name in (f"ours_{unit}", "fftw"))
        table.add("the same, relative RMS error on white noise", "FFTW", "≤ its own",
                  f"{ours:.3e} : {other:.3e}", ours <= other)
        table.inform("the same, time", "KissFFT",
                     f"{figures.ratio(f'fft2048/ours_{unit}', 'fft2048/kissfft'):.2f} ×")
    table.ratio("one stereo analysis", "its two transforms alone", 4,
                spectrum.ratio("analysis/stereo", "analysis/its_two_transforms_alone"))
    table.ratio("one post-processing, one band of 100 bars",
                "six straight passes over the amplitudes of its points", 3,
                spectrum.ratio("postprocessing/one_band", "postprocessing/six_straight_passes"))
    table.inform("the same", "six passes over as many amplitudes side by side",
                 f"{spectrum.ratio('postprocessing/one_band', 'postprocessing/six_contiguous_passes'):.2f} ×")
    table.ratio("one level tick, 50 ms at 48 kHz", "a plain sum of squares", 1.2,
                spectrum.ratio("leveltick/50ms", "leveltick/plain_sum_of_squares"))
    table.ratio("conversion of a 480-frame float stereo packet", "memcpy and a plain scale", 1.5,
                conversion.ratio("conversion/480_float_stereo_frames",
                                 "conversion/memcpy_and_plain_scale"))
    table.ratio("one message of 104 fields", "its numbers by std::to_chars", 2,
                message.ratio("message/104_fields", "message/its_numbers_by_to_chars"))
    allocations = message.counter("message/104_fields", "allocations")
    table.add("the same, heap allocations", "", "1", f"{allocations:g}", allocations == 1)


def add_processes(table, programs, quick, hour, progress):
    import measure
    seconds = 3 if quick else 60
    progress.step(f"processor time and memory for {seconds} s")
    found = measure.processor_and_memory(programs, seconds)
    cpu, memory = found["cpu"], found["memory"]
    note = " ({:.2f} % : {:.2f} % of one core)"
    table.ratio("processor time, tone playing, one replica", "a bare Qt process", 1.5,
                cpu["program"] / cpu["bare"], note.format(cpu["program"], cpu["bare"]))
    table.ratio("the same", "cava, raw output, 100 bars, 60 a second", 1.0,
                cpu["program"] / cpu["cava"], note.format(cpu["program"], cpu["cava"]))
    table.ratio("resident memory", "the bare Qt process", 1.5, memory["program"] / memory["bare"],
                " ({:.1f} MB : {:.1f} MB)".format(memory["program"], memory["bare"]))

    progress.step("from sound to message")
    delays = measure.latency(programs, 5 if quick else 200)
    expected, worst = sum(measure.WAITS) / 2, sum(measure.WAITS)
    for name, value, limit, text in (
            ("median", measure.median(delays), expected + 5, f"{expected:g} ms expected + 5 ms"),
            ("99th percentile", measure.percentile(delays, 99), worst + 10,
             f"{worst:g} ms at worst + 10 ms")):
        table.add(f"sound to message, {len(delays)} bursts, {name}", "the built-in waits",
                  f"≤ {text}", f"{value:.1f} ms", value <= limit)

    count = 64
    progress.step(f"{count} replicas at once")
    found = measure.many_replicas(programs, count, seconds)
    slowest, fastest = min(found["rates"]), max(found["rates"])
    table.add(f"{len(found['rates'])} replicas at once, messages a second each", "", "50 ± 0.5",
              f"{slowest:.2f} to {fastest:.2f}",
              len(found["rates"]) == count and 49.5 <= slowest and fastest <= 50.5)
    none, one, many = (found["cpu"][consumers] for consumers in (0, 1, count))
    table.ratio("what they add in processor time beside what one adds", f"{count} ×", 1.0,
                (many - none) / (one - none) / count,
                f" (from {none:.2f} % to {many:.2f} % and {one:.2f} %)")

    if hour:
        progress.step("resident memory for an hour")
        first, last = measure.memory_over_time(programs, 3600)
        kinds = ", ".join(f"{text} {last[kind]:.1f} : {first[kind]:.1f}" for kind, text in (
            ("RssAnon", "its own"), ("RssFile", "programs and libraries"), ("RssShmem", "the server's")))
        table.add("resident memory after an hour of tone", "at first", "flat (within 1 MB)",
                  f"{last['VmRSS']:.1f} MB : {first['VmRSS']:.1f} MB ({kinds})",
                  last["VmRSS"] < first["VmRSS"] + 1)
    else:
        table.add("resident memory after an hour of tone", "at first", "flat", "use --hour", None)


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("programs")
    arguments.add_argument("--quick", action="store_true")
    arguments.add_argument("--hour", action="store_true")
    options = arguments.parse_args()
    programs = os.path.abspath(options.programs)
    os.environ["TONEWELL_PROGRAM"] = os.path.join(programs, "TonewellDetection")

    table = Table()
    progress = Progress(len(ROOMS) + PROCESSES + options.hour)
    add_rooms(table, programs, options.quick, progress)
    add_processes(table, programs, options.quick, options.hour, progress)
    table.show()


if __name__ == "__main__":
    main()
