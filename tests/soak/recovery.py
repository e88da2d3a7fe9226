"""What must be there: all, while the mount lives and after its orderly end; after a kill all that was finished, and of the
one operation that the kill met any part, but never other content."""

import os
import shutil

import operations
from pair import attempt
from served import HIDDEN

BLOCK = 512
ONE_STEP = ("rename", "unlink", "mkdir", "rmdir")
BY_MANY_STEPS = ("git", "tar_in", "tar_out", "many", "remove_tree")


def tree_of(root, leave_out=()):
    """Path -> its bytes, None for a folder."""
    found = {}
    for folder, folders, files in os.walk(root, onerror=operations.raise_it):
        folders[:] = [name for name in folders if name not in leave_out]
        for name in folders:
            found[os.path.relpath(os.path.join(folder, name), root)] = None
        for name in files:
            path = os.path.join(folder, name)
            found[os.path.relpath(path, root)] = operations.content_of(path)
    return found


def describe(entry):
    return "a folder" if entry is None else "absent" if entry is ... else str(operations.digest_of(entry))


def differences(found, expected):
    told = []
    for path in sorted({*found, *expected}):
        here, there = found.get(path, ...), expected.get(path, ...)
        if here != there:
            line = f"{path}: is {describe(here)}, must be {describe(there)}"
            if isinstance(here, bytes) and isinstance(there, bytes):
                first = next((place for place, (one, two) in enumerate(zip(here, there)) if one != two), None)
                line += f"; first difference at {first if first is not None else min(len(here), len(there))}"
            told.append(line)
    return told


def is_mixture(content, versions):
    """Whether every block is that of one of the versions, and no size was never meant."""
    if not min(map(len, versions)) <= len(content) <= max(map(len, versions)):
        return False
    for start in range(0, len(content), BLOCK):
        block = content[start:start + BLOCK]
        if not any(version[start:start + len(block)].ljust(len(block), b"\0") == block for version in versions):
            return False
    return True


def _leave_out(name):
    """What is compared by git itself: it keeps times and inode numbers in there."""
    return (".git", "clone") if name == "git" else ()


def compare_alive(control, names):
    """Everything on the mount, and in the served tree, against the plain folder. Returns how many files were compared."""
    compared = 0
    for name in names:
        plain = control.plain / name
        for root in (control.mount / "work" / name, control.tree / "work" / name):
            if name == "database":
                faults = _table_faults(root, [plain])
            else:
                expected = tree_of(plain, _leave_out(name))
                faults = differences(tree_of(root, _leave_out(name)), expected)
                compared += len(expected)
            if faults:
                raise AssertionError(f"{root} differs from {plain}:\n" + "\n".join(faults[:20]))
    return compared


def _table_faults(root, allowed_roots):
    faults = []
    for name in sorted({file for where in (root, *allowed_roots) for file in os.listdir(where) if file.endswith(".db")}):
        allowed = [attempt(operations.table, where, [name], {})[0] for where in allowed_roots
                   if os.path.exists(os.path.join(where, name))]
        if len(allowed) < len(allowed_roots) and not os.path.exists(os.path.join(root, name)):
            continue
        found = attempt(operations.table, root, [name], {})[0]
        if len(allowed) < len(allowed_roots):  # the kill met its first transaction
            allowed += [operations.NO_TABLE, operations.EMPTY_TABLE]
        if found not in allowed:
            faults.append(f"{name}: {found}, must be one of {allowed}")
    return faults


def take_up_hidden(tree):
    """What the documents tell people to do with hidden names after a crash. Returns how many there were."""
    count = 0
    for folder, _, files in os.walk(tree):
        for name in files:
            if not name.startswith(HIDDEN):
                continue
            count += 1
            path = os.path.join(folder, name)
            if "-head-of-" in name:
                target = os.path.join(folder, name.split("-head-of-", 1)[1])
                if os.path.exists(target) and os.path.getsize(target) < os.path.getsize(path):
                    os.rename(path, target)
                    continue
            os.unlink(path)
    return count


class Afterwards:
    """One program's folder after a kill."""

    def __init__(self, control, name, pending, may_lose):
        """`may_lose`: what was neither synced nor closed may be missing (option writeback, and no orderly end)."""
        self.control, self.name, self.pending, self.may_lose = control, name, pending, may_lose
        self.plain = control.plain / name
        self.after = control.folder / "after" / name

    def prepare(self):
        """The plain folder as it would be, had the interrupted operation been finished."""
        shutil.copytree(self.plain, self.after)
        if self.pending:
            memory = {}
            attempt(getattr(operations, self.pending["op"]), str(self.after), self.pending["arguments"], memory)
            operations.let_go(None, memory)

    def check_tree(self):
        """The served tree itself, with no mount."""
        if self.name == "database":
            return
        out = _leave_out(self.name)
        found = tree_of(self.control.tree / "work" / self.name, out)
        before, after = tree_of(self.plain, out), tree_of(self.after, out)
        op = self.pending["op"] if self.pending else None
        faults = []
        if not self.may_lose and (op is None or op in ONE_STEP):
            if found not in (before, after):
                faults = differences(found, before)
        else:
            for path in sorted({*found, *before, *after}):
                if not self._allows(path, found.get(path, ...), before.get(path, ...), after.get(path, ...), op):
                    faults += [f"{path}: is {describe(found.get(path, ...))}, before {describe(before.get(path, ...))}, "
                               f"after {describe(after.get(path, ...))}"]
        if faults:
            raise AssertionError(f"after a kill, {self.name}, pending {self.pending}:\n" + "\n".join(faults[:20]))

    def _allows(self, path, found, before, after, op):
        if found == before or found == after:
            return True
        is_kept = self.may_lose and self.name == "kept"
        if before == after and (before is ... or not is_kept):
            return False
        many = op in BY_MANY_STEPS and before != after
        if found is ...:
            return many or is_kept
        if found is None:
            return many
        versions = [version for version in (before, after) if isinstance(version, bytes)]
        if before is ... or after is ... or many or op in ("write_whole", "copy"):
            versions.append(b"")
        if is_kept:
            safe = self.control.safe / self.name / path
            versions.append(operations.content_of(safe) if safe.exists() else b"")
        return bool(versions) and is_mixture(found, versions)

    def check_mounted(self):
        """With the programs' own means, on the new mount."""
        root = self.control.mount / "work" / self.name
        faults = []
        if self.name == "database":
            faults = _table_faults(root, [self.plain, self.after])
        elif self.name == "git":
            faults = self._git_faults(root)
        if faults:
            raise AssertionError(f"after a kill, {self.name}, pending {self.pending}:\n" + "\n".join(faults[:20]))

    def _git_faults(self, root):
        shutil.rmtree(root / "clone", ignore_errors=True)
        before, after = self._refs(self.plain), self._refs(self.after)
        if not before:
            shutil.rmtree(root / "project", ignore_errors=True)  # it had no commit yet
            return []
        for folder, _, files in os.walk(root / "project" / ".git"):
            for file in files:
                if file.endswith(".lock"):
                    os.unlink(os.path.join(folder, file))
        health, failed = attempt(operations.git, root, ["project", 0, "fsck", "--full", "--strict"], {})
        found = self._refs(root)
        faults = [f"git fsck: {health}"] if failed else []
        for ref in sorted({*found, *before, *after}):
            if found.get(ref) not in (before.get(ref), after.get(ref)):
                faults.append(f"{ref}: {found.get(ref)}, must be {before.get(ref)} or {after.get(ref)}")
        for arguments in (["reset", "-q", "--hard"], ["clean", "-qfd"]):
            told, failed = attempt(operations.git, root, ["project", 0, *arguments], {})
            faults += [f"git {arguments}: {told}"] if failed else []
        told, failed = attempt(operations.git, root, ["project", 0, "status", "--porcelain"], {})
        return faults + ([f"git status: {told}"] if failed or told else [])

    @staticmethod
    def _refs(root):
        if not (root / "project" / ".git").exists():
            return {}
        told, failed = attempt(operations.git, root, ["project", 0, "for-each-ref", "--format=%(refname) %(objectname)"], {})
        if failed or not told:
            return {}
        refs = dict(line.split(" ") for line in told.splitlines())
        told, failed = attempt(operations.git, root, ["project", 0, "rev-parse", "HEAD"], {})
        refs["HEAD"] = None if failed else told.strip()
        return refs

    def adopt(self):
        """From here on, what is on the mount is what must be there."""
        shutil.rmtree(self.plain)
        shutil.copytree(self.control.mount / "work" / self.name, self.plain)
        shutil.rmtree(self.after)
        shutil.rmtree(self.control.safe / self.name, ignore_errors=True)
