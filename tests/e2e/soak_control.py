"""A bare timer of 20 ms, as late as the machine makes it: what the program can be compared with.

Prints each interval of more than 30 ms as a JSON array, [begin, end] in monotonic seconds. Ends with
its standard input.
"""
import json
import select
import sys
import time

STEP = 0.02
LATE = 0.03


def main():
    last = due = time.monotonic()
    while True:
        due = max(due + STEP, time.monotonic())
        if select.select([sys.stdin], [], [], max(0, due - time.monotonic()))[0]:
            return
        now = time.monotonic()
        if now - last > LATE:
            print(json.dumps([last, now]), flush=True)
        last = now


if __name__ == "__main__":
    main()
