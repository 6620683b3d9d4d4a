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


def run(command, env=None, keep_output=False):
    """Wall time of one run, and what it printed when asked to keep it;
    otherwise the output goes to /dev/null, so that reading it here is not
    timed with the command."""
    start = time.perf_counter()
    stdout = subprocess.PIPE if keep_output else subprocess.DEVNULL
    child = subprocess.Popen(command, stdout=stdout, stderr=subprocess.DEVNULL, env=env)
    output, _ = child.communicate()
    output = output or b""
    elapsed = time.perf_counter() - start
    if child.returncode != 0:
        sys.exit(f"{' '.join(command)} failed with status {child.returncode}")
    return elapsed, output.decode(errors="replace").strip()


def peak_memory_kib(command, env=None):
    """The child's maximum resident set size, as GNU time reports it."""
    result = subprocess.run(["/usr/bin/time", "-f", "%M"] + command, stdout=subprocess.DEVNULL,
                            stderr=subprocess.PIPE, text=True, check=True, env=env)
    return int(result.stderr.strip().splitlines()[-1])


def make_grid_tree(root, widths=(20, 20, 50), files_per_folder=10):
    """Folders nested by `widths` (20 x 20 x 50 by default), each folder of
    the last level holding `files_per_folder` files with the same mix of
    sizes, hard links and symbolic links as make_tree; the same tree for the
    same arguments."""
    rng = random.Random(20261122)
    payload = b"x" * 20000
    made = []
    level = [root]
    for depth, width in enumerate(widths):
        below = []
        for parent in level:
            for i in range(width):
                path = os.path.join(parent, f"d{depth}-{i}")
                os.mkdir(path)
                below.append(path)
        level = below
    for folder in level:
        fd = os.open(folder, os.O_RDONLY | os.O_DIRECTORY)
        try:
            for i in range(files_per_folder):
                name = f"f{i}"
                kind = rng.random()
                if kind < 0.03 and made:
                    os.link(made[rng.randrange(len(made))], name, dst_dir_fd=fd)
                elif kind < 0.05 and made:
                    os.symlink(made[rng.randrange(len(made))], name, dir_fd=fd)
                else:
                    _write(fd, name, payload[: rng.choice((0, 100, 1000, 5000, 20000))])
                    made.append(os.path.join(folder, name))
        finally:
            os.close(fd)


def _write(directory_fd, name, data, sparse_size=0):
    fd = os.open(name, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644, dir_fd=directory_fd)
    try:
        if data:
            os.write(fd, data)
        if sparse_size:
            os.ftruncate(fd, sparse_size)
    finally:
        os.close(fd)


def cached(cache, name, version, make):
    """The tree `name` in the folder `cache`, made by make(path) when it is
    missing or was made by another `version` of its generator. It is made
    under a temporary name and renamed into place once whole, so that a run
    cut short never leaves half a tree that passes for the cached one."""
    os.makedirs(cache, exist_ok=True)
    path = os.path.join(cache, name)
    stamp = os.path.join(cache, name + ".version")
    try:
        with open(stamp) as existing:
            if existing.read().strip() == version and os.path.exists(path):
                return path
    except FileNotFoundError:
        pass
    for stale in (path, path + ".partial"):
        if os.path.lexists(stale):
            subprocess.run(["rm", "-rf", stale], check=True)
    print(f"generating {name} (once; cached in {cache}) ...", flush=True)
    start = time.perf_counter()
    make(path + ".partial")
    os.rename(path + ".partial", path)
    with open(stamp, "w") as out:
        out.write(version + "\n")
    print(f"generated {name} in {time.perf_counter() - start:.0f} s", flush=True)
    return path


def make_flat_folder(root, files):
    """One folder of `files` empty files."""
    os.makedirs(root)
    fd = os.open(root, os.O_RDONLY | os.O_DIRECTORY)
    try:
        for i in range(files):
            os.close(os.open(f"file{i:07d}", os.O_WRONLY | os.O_CREAT, 0o644, dir_fd=fd))
    finally:
        os.close(fd)


class _Home:
    """Writes files below a home, one directory descriptor at a time."""

    def __init__(self, root, seed):
        self.root = root
        self.rng = random.Random(seed)
        self.payload = os.urandom(1 << 16) * 4  # 256 KiB that no file system compresses away
        self.files = 0

    def folder(self, relative):
        path = os.path.join(self.root, relative)
        os.makedirs(path, exist_ok=True)
        return path

    def files_in(self, relative, count, sizes, prefix="f", extension=""):
        """`count` files in one folder, each of a size drawn from `sizes`."""
        path = self.folder(relative)
        fd = os.open(path, os.O_RDONLY | os.O_DIRECTORY)
        try:
            for i in range(count):
                size = self.rng.choice(sizes)
                _write(fd, f"{prefix}{i}{extension}", self.payload[:size])
        finally:
            os.close(fd)
        self.files += count

    def sparse(self, relative, size):
        """A large file that takes no room: model weights and disk images."""
        path = os.path.join(self.root, relative)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        fd = os.open(os.path.dirname(path), os.O_RDONLY | os.O_DIRECTORY)
        try:
            _write(fd, os.path.basename(path), self.payload[:4096], sparse_size=size)
        finally:
            os.close(fd)
        self.files += 1

    def fan(self, relative, folders, files_each, sizes, depth=1, extension=""):
        """`folders` folders below `relative` spread over `depth` levels of
        two-character names (as content-addressed caches lay them out),
        each with `files_each` files."""
        for i in range(folders):
            parts = [f"{(i >> (8 * level)) & 0xFF:02x}" for level in range(depth)]
            self.files_in(os.path.join(relative, *parts, f"{i:05x}") if depth > 1 else
                          os.path.join(relative, f"{i:02x}{i // 256:02x}"), files_each, sizes, extension=extension)


SMALL = (0, 120, 700, 2000, 6000)
MEDIUM = (1500, 4000, 9000, 20000)
LARGE = (30000, 80000, 160000)


def make_developer_home(root):
    """About 1,000,000 files laid out as a developer's home on a Mac: the
    package managers' caches (npm, pip, uv, Cargo, Gradle, Homebrew), a
    Hugging Face hub and Ollama's models, Xcode's DerivedData, 30 projects
    with node_modules, and ~/Library/Caches and Logs of many small files."""
    home = _Home(root, 20261123)
    # npm: a content-addressed cache and its index.
    home.fan(".npm/_cacache/content-v2/sha512", 2500, 40, MEDIUM, depth=2)
    home.fan(".npm/_cacache/index-v5", 1000, 40, SMALL, depth=2)
    home.files_in(".npm/_logs", 50, SMALL, extension=".log")
    # pip and uv.
    home.fan(".cache/pip/http-v2", 1500, 40, MEDIUM, depth=2)
    home.files_in(".cache/pip/wheels", 300, LARGE, extension=".whl")
    for bucket, folders in (("archive-v0", 1400), ("wheels-v5", 400), ("simple-v18", 200), ("sdists-v9", 200)):
        home.fan(f".cache/uv/{bucket}", folders, 35, SMALL + MEDIUM)
    # Cargo.
    home.files_in(".cargo/registry/cache/index.crates.io-6f17d22bba15001f", 1500, MEDIUM, extension=".crate")
    for crate in range(1500):
        home.files_in(f".cargo/registry/src/index.crates.io-6f17d22bba15001f/crate{crate}-1.0.{crate % 9}/src",
                      50, SMALL + MEDIUM, extension=".rs")
    home.fan(".cargo/git/db", 40, 50, MEDIUM)
    home.fan(".cargo/git/checkouts", 40, 200, SMALL)
    # Gradle.
    home.fan(".gradle/caches/modules-2/files-2.1", 1500, 12, LARGE + MEDIUM, extension=".jar")
    home.fan(".gradle/caches/transforms-3", 2000, 30, SMALL + MEDIUM)
    home.fan(".gradle/wrapper/dists", 3, 1500, MEDIUM, extension=".jar")
    home.files_in(".gradle/daemon/8.5", 200, SMALL, extension=".log")
    # Homebrew: bottles, an abandoned download, the API metadata.
    home.files_in("Library/Caches/Homebrew/downloads", 300, LARGE, extension=".bottle.tar.gz")
    home.sparse("Library/Caches/Homebrew/downloads/deadbeef--llvm.incomplete", 200 << 20)
    home.files_in("Library/Caches/Homebrew/api", 20, LARGE, extension=".json")
    # Model weights: sparse, as they would otherwise fill the disk.
    for model in range(12):
        name = f"models--org{model}--model{model}"
        for blob in range(6):
            home.sparse(f".cache/huggingface/hub/{name}/blobs/{blob:064x}", (64 + blob) << 20)
        home.files_in(f".cache/huggingface/hub/{name}/snapshots/{model:040x}", 12, SMALL, extension=".json")
        home.files_in(f".cache/huggingface/hub/{name}/refs", 1, SMALL)
    for layer in range(30):
        home.sparse(f".ollama/models/blobs/sha256-{layer:064x}", (256 + layer) << 20)
    home.fan(".ollama/models/manifests/registry.ollama.ai/library", 10, 3, SMALL)
    # Xcode.
    for project in range(12):
        base = f"Library/Developer/Xcode/DerivedData/App{project}-{project:028x}"
        home.fan(f"{base}/Build/Intermediates.noindex", 120, 60, SMALL + MEDIUM, extension=".o")
        home.fan(f"{base}/Index.noindex/DataStore", 40, 50, SMALL)
    home.fan("Library/Developer/CoreSimulator/Caches/dyld", 20, 50, LARGE)
    # Projects with their dependencies, which the scan leaves alone.
    for project in range(30):
        base = f"Projects/project{project:02d}"
        home.files_in(f"{base}/src", 150, SMALL + MEDIUM, extension=".ts")
        home.folder(f"{base}/.git/objects")
        home.files_in(f"{base}/.git/objects/pack", 4, LARGE, extension=".pack")
        for package in range(200):
            home.files_in(f"{base}/node_modules/package{package}/lib", 45, SMALL, extension=".js")
    # ~/Library/Caches and ~/Library/Logs: many applications, many small files.
    for app in range(240):
        home.fan(f"Library/Caches/com.example.app{app}/Cache.db-wal-pages", 10, 50, SMALL)
    for app in range(60):
        home.files_in(f"Library/Logs/com.example.app{app}", 300, SMALL, extension=".log")
    home.files_in("Library/Logs/DiagnosticReports", 400, SMALL, extension=".ips")
    # Things a person keeps, which the scan leaves alone as well.
    home.fan("Documents", 200, 150, SMALL + MEDIUM, extension=".txt")
    return home.files


def make_audit_log(path, entries):
    """An audit log of `entries` dry-run entries, chained as the program
    chains them (no duration, so each hashes with "0.0"), each naming three
    paths."""
    import hashlib
    import json
    import uuid

    rng = random.Random(20261124)
    previous = "0" * 64
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path + ".partial", "w") as out:
        for n in range(entries):
            paths = [f"/Users/dev/Library/Caches/com.example.app{rng.randrange(240)}/Cache.db-{n}-{k}" for k in range(3)]
            timestamp = time.strftime("%Y-%m-%dT%H:%M:%S", time.gmtime(1767225600 + n)) + f".{n % 1000:03d}Z"
            operation = str(uuid.UUID(int=rng.getrandbits(128), version=4)).upper()
            items, size = len(paths), rng.randrange(1 << 30)
            text = "|".join([previous, timestamp, operation, "dry_run", str(items), str(size), "cli", "0.0",
                             ",".join(sorted(paths))])
            rolling = hashlib.sha256(text.encode()).hexdigest()
            entry = {"bytesUnbulked": size, "client": "cli", "itemsCount": items, "operationId": operation,
                     "operationType": "dry_run", "paths": paths, "previousHash": previous,
                     "rollingHash": rolling, "timestamp": timestamp}
            out.write(json.dumps(entry, sort_keys=True, separators=(",", ":")).replace("/", "\\/") + "\n")
            previous = rolling
    os.chmod(path + ".partial", 0o600)
    os.rename(path + ".partial", path)
