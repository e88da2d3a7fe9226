"""Several processes that carry out one sequence of operations, in the order of the sequence."""

import os
import pickle
import signal

from .operations import Tree, perform, uses_removed_folder


class Player:
    """One process with descriptors of its own in both trees."""

    def __init__(self, roots):
        self.roots = roots
        self.reads, their_writes = os.pipe()
        their_reads, self.writes = os.pipe()
        self.pid = os.fork()
        if self.pid == 0:
            os.close(self.reads)
            os.close(self.writes)
            self._play(their_reads, their_writes)
        os.close(their_reads)
        os.close(their_writes)
        self.input = os.fdopen(self.reads, "rb")
        self.output = os.fdopen(self.writes, "wb")

    def _play(self, reads, writes):
        signal.setitimer(signal.ITIMER_REAL, 0)
        try:
            incoming, outgoing = os.fdopen(reads, "rb"), os.fdopen(writes, "wb")
            trees = [Tree(root) for root in self.roots]
            while (order := pickle.load(incoming)) is not None:
                if order == "close":
                    for tree in trees:
                        tree.close_all()
                    answer = None
                else:
                    answer = [perform(tree, order[0], order[1:]) for tree in trees]
                    answer.append(uses_removed_folder(trees[1], order[1:]))
                pickle.dump(answer, outgoing)
                outgoing.flush()
        except EOFError:
            pass
        except BaseException:  # pylint: disable=broad-except
            import traceback
            traceback.print_exc()
        os._exit(0)

    def do(self, order):
        pickle.dump(order, self.output)
        self.output.flush()
        return pickle.load(self.input)

    def end(self):
        try:
            # Told in words: the pipe stays open in the players that were started later.
            pickle.dump(None, self.output)
            self.output.flush()
        except OSError:
            pass
        for stream in (self.output, self.input):
            try:
                stream.close()
            except OSError:
                pass
        os.waitpid(self.pid, 0)


class Cast:
    def __init__(self, count, roots):
        self.players = []
        for _ in range(count):
            self.players.append(Player(roots))

    def play(self, operation):
        """The results in both trees, and whether it was about a folder that is gone."""
        return self.players[operation[0]].do(operation[1:])

    def close_all(self):
        for player in self.players:
            player.do("close")

    def end(self):
        for player in self.players:
            player.end()
