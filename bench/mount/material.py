"""The files that the workloads work on, made once per run in a private folder."""
import random
import subprocess


class Sizes:
    """How much each workload has to do."""

    def __init__(self, quick):
        self.sequential = (16 if quick else 256) << 20
        self.random_seconds = 0.2 if quick else 2
        self.small_files = 100 if quick else 2000
        self.listings = (500, 2000) if quick else (10000, 50000)
        self.served_before = 400 if quick else 20000  # requests of a mount that is called long-lived
        self.warm_files = 20 if quick else 500
        self.tree_folders = 10 if quick else 150
        self.build_files = 4 if quick else 24
        self.repetitions = 1 if quick else 3
        self.command_seconds = 60


class Material:
    """Source trees and archives beside the mounts: `tree.tar`, `repository.git`, `tree/` and `project/`."""

    def __init__(self, folder, sizes):
        self.folder = folder
        self.sizes = sizes
        self.tree = folder / 'tree'
        self.archive = folder / 'tree.tar'
        self.repository = folder / 'repository.git'
        self.project = folder / 'project'
        self.random_data = folder / 'random'
        self._make_tree()
        self._make_repository()
        self._make_project()

    def _make_tree(self):
        """About 3,000 files of C text, 29 MB in all, at full size."""
        chance = random.Random(7)
        for number in range(self.sizes.tree_folders):
            part = self.tree / f'mod{number // 15}' / f'part{number}'
            part.mkdir(parents=True)
            for file in range(20):
                lines = 20 + int(chance.random() * chance.random() * 900)
                (part / f'file{file}.c').write_text(''.join(
                    f'static int fn_{number}_{file}_{line}(int a, int b) '
                    f'{{ return a * {chance.randrange(100000)} + b; }} /* line {line} */\n' for line in range(lines)))
        subprocess.run(['tar', '-C', self.folder, '-cf', self.archive, 'tree'], check=True)

    def _make_repository(self):
        def git(*arguments):
            subprocess.run(['git', '-C', self.tree, '-c', 'user.name=bench', '-c', 'user.email=bench@localhost',
                            *arguments], check=True, stdout=subprocess.DEVNULL)

        git('init', '-q')
        git('add', '-A')
        git('commit', '-qm', 'tree')
        git('gc', '-q')
        subprocess.run(['git', 'clone', '-q', '--bare', self.tree, self.repository], check=True)
        subprocess.run(['rm', '-rf', self.tree / '.git'], check=True)

    def _make_project(self):
        """A small C program in many files, with a makefile."""
        self.project.mkdir()
        names = [f'part{number}' for number in range(self.sizes.build_files)]
        for name in names:
            (self.project / f'{name}.h').write_text(f'int {name}(int);\n')
            (self.project / f'{name}.c').write_text(
                '#include <stdio.h>\n#include <stdlib.h>\n#include <string.h>\n' +
                ''.join(f'#include "{other}.h"\n' for other in names) + f'int {name}(int a) {{ return a + 1; }}\n')
        calls = ' + '.join(f'{name}(1)' for name in names)
        (self.project / 'main.c').write_text(''.join(f'#include "{name}.h"\n' for name in names) +
                                             f'int main(void) {{ return {calls} == 0; }}\n')
        objects = ' '.join(f'{name}.o' for name in [*names, 'main'])
        headers = ' '.join(f'{name}.h' for name in names)
        (self.project / 'Makefile').write_text(
            f'program: {objects}\n\tcc -o $@ {objects}\n{objects}: {headers}\n%.o: %.c\n\tcc -c -o $@ $<\n')

    def fresh_random_data(self):
        """Bytes that no cache holds under their new name."""
        if not self.random_data.exists():
            subprocess.run(['dd', 'if=/dev/urandom', f'of={self.random_data}', 'bs=1M', 'status=none',
                            f'count={self.sizes.sequential >> 20}'], check=True)
        return self.random_data
