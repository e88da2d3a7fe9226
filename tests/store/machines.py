"""Several machines that share one tree: mounts of their own, each with its own helper, host and mount point."""

import os
import subprocess
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from harness import system
from harness.deadline import SLOWNESS, eventually
from harness.program import SHIPPED_HELPER, write_configuration
from harness.volume import Volume

KIT = Path(os.environ.get("KEMVI_SDK", "."))
PACKAGE = next((place for place in (KIT / "store", KIT.parent / "store") if (place / "helpers").exists()), KIT.parent / "store")
HELPER = PACKAGE / "helpers" / "store.mjs"
TOOL = PACKAGE / "bin" / "kemvi-store.mjs"
# What the harness itself is tested with: the machines then share a plain folder, of which the kernel keeps nothing.
IS_LOCAL = os.environ.get("KEMVI_TEST_STORE") == "local"
KEEPS_NOTHING = ["attr_timeout=0", "entry_timeout=0", "negative_timeout=0"]
RECONNECT = 30  # seconds for which an operation waits for a lost engine, unless a test says otherwise


class Machine(Volume):
    """One of them. `settings` and `secrets` are what its helper is told."""

    def __init__(self, workspace, name, settings, secrets, options=(), shared=None):
        if IS_LOCAL:
            super().__init__(workspace, name, [*options, *KEEPS_NOTHING], helper=SHIPPED_HELPER, backing=shared)
            return
        super().__init__(workspace, name, options, helper=HELPER)
        write_configuration(self.source, HELPER, "", helperEnvironment=settings, mountOptions=["close_to_open"])  # as init writes it
        hidden = self.source / "mount-secrets.env"
        hidden.write_text("".join(f"{key}={value}\n" for key, value in secrets.items()))
        hidden.chmod(0o600)

    def open(self, limit=60.0, seconds=20):
        super().open(limit, seconds)
        self._baseline += 1  # the channel on which the helper tells of changes, from the first one on
        return self

    def kill_helper(self):
        os.kill(self.helper_pid(), 9)

    def kill_host(self):
        """The mount goes with it, a moment later."""
        os.kill(self.host.pid, 9)
        self.expects_exit = -9
        self.wait_for_end()
        eventually(lambda: not system.mount_points(self.path), 20, "the end of the mount")


class Store:
    """One tree of one store, as a test has it."""

    def __init__(self, workspace, limit, settings, secrets, s3=None):
        self.workspace, self.limit, self.settings, self.secrets, self.s3 = workspace, limit, settings, secrets, s3
        self.machines = []
        self.shared = workspace / "shared"
        self.shared.mkdir(exist_ok=True)

    def machine(self, options=(), **settings):
        """One more, mounted."""
        return self.several(1, options, **settings)[0]

    def several(self, count, options=(), **settings):
        """So many more, mounted; the first of a new tree makes it."""
        told = self.settings | {f"KEMVI_STORE_{name.upper()}": str(value) for name, value in settings.items()}
        first = len(self.machines)
        made = [Machine(self.workspace, str(first + index), told, self.secrets, options, self.shared) for index in range(count)]
        self.machines += made
        with ThreadPoolExecutor(count) as pool:
            list(pool.map(lambda machine: machine.open(self.limit, seconds=60), made))
        return made

    def tool(self, command, *arguments, limit=120):
        """What kemvi-store says of this tree, which it must be content with."""
        done = subprocess.run(["node", TOOL, command, self.machines[0].source, *arguments], capture_output=True, text=True,
                              check=False, stdin=subprocess.DEVNULL, timeout=limit * SLOWNESS, env=os.environ | {"HOME": str(self.workspace)})
        assert done.returncode == 0, f"kemvi-store {command}: {done.returncode}\n{done.stdout}{done.stderr}"
        return done.stdout

    def close(self):
        faults = []
        for machine in self.machines:
            try:
                machine.close()
            except AssertionError as fault:
                faults.append(f"machine {machine.name}: {fault}")
        assert not faults, "\n".join(faults)

    def check(self):
        """No damage is found in the tree, whatever happened to it."""
        if not IS_LOCAL:
            self.tool("fsck", "--contents", "read")

    def check_objects(self, server):
        """Of a tree that nobody has mounted any more, every object is a chunk of a file once it was cleared up."""
        if IS_LOCAL or not self.s3:
            return
        self.tool("gc", "--unmounted", "--older-than", "0s")
        place = self.settings["KEMVI_STORE_CONTENTS"].removeprefix("s3://")
        bucket, prefix = place.split("/")
        named = server.sql(f"""select count(distinct c.object) from kemvi_store.chunk c join kemvi_store.tree t on t.id = c.tree
            where c.object is not null and t.name = '{self.settings["KEMVI_STORE_TREE"]}'""")
        assert len(self.s3.keys(bucket, f"{prefix}/")) == int(named)
