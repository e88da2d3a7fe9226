"""The commands of every day."""

import os
import subprocess


def run(*command, **more):
    done = subprocess.run(list(map(str, command)), capture_output=True, text=True, timeout=50, check=False,
                          stdin=subprocess.DEVNULL, **more)
    assert done.returncode == 0, f"{command}: {done.stdout}{done.stderr}"
    return done.stdout


def shell(text, volume):
    return run("sh", "-euc", text, cwd=volume.path)


def test_cp_cat_mv_rm(volume):
    shell("echo content > a; cp a b; cat a b > c; mv c d; rm a", volume)
    assert sorted(os.listdir(volume.backing)) == ["b", "d"]
    assert (volume.backing / "d").read_text() == "content\ncontent\n"


def test_mkdir_p_and_rm_r(volume):
    shell("mkdir -p a/b/c/d; touch a/b/c/d/file a/file; rm -r a; test ! -e a", volume)
    assert os.listdir(volume.backing) == []


def test_find_with_every_kind_of_test(volume):
    shell("mkdir -p x/y; echo 12345 > x/five; : > x/y/empty", volume)
    assert shell("find . -type f | sort", volume).split() == ["./x/five", "./x/y/empty"]
    assert shell("find . -type d | sort", volume).split() == [".", "./x", "./x/y"]
    assert shell("find . -size 6c", volume).split() == ["./x/five"]
    assert shell("find . -empty -type f", volume).split() == ["./x/y/empty"]
    shell("find x -delete", volume)
    assert os.listdir(volume.path) == []


def test_redirections_append_and_truncate(volume):
    assert shell("echo a > f; echo b >> f; echo c >> f; cat f; echo d > f; cat f", volume) == "a\nb\nc\nd\n"


def test_sort_in_place_sed_in_place_and_sponge_like_use(volume):
    shell("printf '3\\n1\\n2\\n' > f; sort -o f f; sed -i s/2/two/ f", volume)
    assert (volume.path / "f").read_text() == "1\ntwo\n3\n"


def test_head_tail_wc_and_cmp(volume):
    shell("seq 1 20000 > f; cp f g; cmp f g", volume)
    assert shell("head -n 1 f; tail -n 1 f; wc -l < f; tail -c 6 f", volume).split() == ["1", "20000", "20000", "20000"]


def test_dd_with_seek_and_without_truncation(volume):
    shell("printf 0123456789 > f; printf XX | dd of=f bs=1 seek=4 conv=notrunc status=none", volume)
    assert (volume.backing / "f").read_text() == "0123XX6789"


def test_truncate_and_du_and_stat(volume):
    shell("truncate -s 10000 f; test $(stat -c %s f) = 10000; truncate -s 5 f; test $(stat -c %s f) = 5", volume)
    shell("head -c 8192 /dev/zero > g; test $(du -k g | cut -f1) = 8", volume)


def test_install_and_touch(volume):
    shell("echo x > f; install -d d; install -m 644 f d/f; touch -d '2020-01-01 UTC' d/f; test d/f -ot f", volume)


def test_archive_tools_in_pipes(volume):
    shell("mkdir s; seq 1 1000 > s/f; tar -cf - s | gzip | gunzip | (mkdir t; tar -xf - -C t); cmp s/f t/s/f", volume)


def test_mktemp_and_lock_by_folder(volume):
    shell("t=$(mktemp -p .); echo x > $t; d=$(mktemp -d -p .); rmdir $d; rm $t; mkdir lock; ! mkdir lock 2>/dev/null", volume)


def test_wildcards_meet_every_file(volume):
    for index in range(200):
        (volume.path / f"f{index}").touch()
    assert len(shell("echo f*", volume).split()) == 200
    shell("rm f*", volume)
    assert os.listdir(volume.path) == []


def test_grep_r_finds_what_is_there(volume):
    shell("mkdir -p a/b; echo needle > a/b/f; echo hay > a/g", volume)
    assert shell("grep -rl needle .", volume).split() == ["./a/b/f"]


def test_move_into_and_out_of_the_volume(volume, workspace):
    (workspace / "outside").write_text("content\n")
    run("mv", workspace / "outside", volume.path / "inside")
    assert (volume.backing / "inside").read_text() == "content\n" and not (workspace / "outside").exists()
    run("mv", volume.path / "inside", workspace / "outside")
    assert (workspace / "outside").read_text() == "content\n" and os.listdir(volume.path) == []


def test_move_of_a_folder_into_and_out_of_the_volume(volume, workspace):
    (workspace / "folder" / "sub").mkdir(parents=True)
    (workspace / "folder" / "sub" / "file").write_text("content\n")
    run("mv", workspace / "folder", volume.path / "folder")
    run("mv", volume.path / "folder", workspace / "back")
    assert (workspace / "back" / "sub" / "file").read_text() == "content\n" and os.listdir(volume.path) == []


def test_pwd_and_realpath(volume):
    shell("mkdir -p a/b; cd a/b; test \"$(pwd -P)\" = \"$(realpath .)\"", volume)
