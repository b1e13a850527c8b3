"""Command lines of the scripts in Python, refused as those in shell refuse them."""
import argparse


class Parser(argparse.ArgumentParser):
    """Says what is wrong in one line: the usage would let it scroll away."""

    def error(self, message):
        self.exit(2, f"scripts/{self.prog}: {message}; see --help\n")
