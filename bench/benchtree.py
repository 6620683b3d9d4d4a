"""What the comparison scripts share: the generated tree, a timed run and a
peak-memory reading."""
import os
import random
import subprocess
import sys
import time


def make_tree(root, files, dirs):
    """`files` files in `dirs` directories below `root`, with hard links and
    symbolic links among them; the same tree for the same arguments."""
    rng = random.Random(20261121)
    directories = [root]
    for i in range(dirs - 1):
        parent = directories[rng.randrange(len(directories))] if i > 50 else root
        path = os.path.join(parent, f"d{i}")
        os.mkdir(path)
        directories.append(path)
    made = []
    for i in range(files):
        directory = directories[i % len(directories)]
        path = os.path.join(directory, f"f{i}")
        kind = rng.random()
        if kind < 0.03 and made:
            os.link(made[rng.randrange(len(made))], path)  # a hard link to an earlier file
        elif kind < 0.05 and made:
            os.symlink(made[rng.randrange(len(made))], path)  # a link, never followed
        else:
            with open(path, "wb") as out:
                out.write(b"x" * rng.choice((0, 100, 1000, 5000, 20000)))
            made.append(path)


def run(command, env=None):
    """Wall time of one run, and what it printed."""
    start = time.perf_counter()
    child = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=env)
    output, _ = child.communicate()
    elapsed = time.perf_counter() - start
    if child.returncode != 0:
        sys.exit(f"{' '.join(command)} failed with status {child.returncode}")
    return elapsed, output.decode(errors="replace").strip()


def peak_memory_kib(command, env=None):
    """The child's maximum resident set size, as GNU time reports it."""
    result = subprocess.run(["/usr/bin/time", "-f", "%M"] + command, stdout=subprocess.DEVNULL,
                            stderr=subprocess.PIPE, text=True, check=True, env=env)
    return int(result.stderr.strip().splitlines()[-1])
