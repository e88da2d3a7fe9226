"""scripts/mutate over a tree of one small library: what it finds to break, what becomes of it, and that it breaks nothing else."""

import re
import shutil
import subprocess
from pathlib import Path

import pytest

SCRIPTS = Path(__file__).resolve().parents[2] / "scripts"

CMAKE = """\
cmake_minimum_required(VERSION 3.25)
project(parts LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
find_package(GTest REQUIRED)
add_executable(parts_tests parts/Parts.cpp Tests.cpp)
target_link_libraries(parts_tests PRIVATE GTest::gtest_main)
"""

PARTS_HEADER = """\
#pragma once
#include <string>
inline bool isEven(int number) { return number % 2 == 0; }
bool isSmall(int number);
bool isLarge(int number);
int sumTo(int last);
int neverAsked(int number);
void removeInside(const std::string& folder, const std::string& path);
"""

PARTS = """\
#include "Parts.h"
#include <cstdlib>
#include <stdexcept>
#include <unistd.h>

constexpr bool isWide = sizeof(long) > 4;
#define CHECKED(condition) do { if (!(condition)) std::abort(); } while (false)

bool isSmall(int number) { return number < 10; }
bool isLarge(int number) { return number > 100; }

int sumTo(int last) {
    CHECKED(last >= 0);
    int sum = 0;
    int next = 0;
    while (next != last) {
        ++next;
        sum = sum + next;
    }
    return sum;
}

int neverAsked(int number) { return number > 0 ? 1 : 2; }

void removeInside(const std::string& folder, const std::string& path) {
    if (path.find(folder) != 0)
        throw std::runtime_error("not inside");
    ::unlink(path.c_str());
}
"""

TESTS = """\
#include "parts/Parts.h"
#include <gtest/gtest.h>

TEST(Parts, knowsEvenNumbers) { EXPECT_TRUE(isEven(2)); EXPECT_FALSE(isEven(3)); }
TEST(Parts, knowsSmallNumbersToTheLast) { EXPECT_TRUE(isSmall(9)); EXPECT_FALSE(isSmall(10)); }
TEST(Parts, knowsLargeNumbersRoughly) { EXPECT_TRUE(isLarge(1000)); EXPECT_FALSE(isLarge(1)); isLarge(100); }
TEST(Parts, sums) { EXPECT_EQ(6, sumTo(3)); }
TEST(Parts, removesNothingElsewhere) { EXPECT_THROW(removeInside("/nowhere/", "OUTSIDE"), std::runtime_error); }
TEST(Parts, failsAlready) { FAIL(); }
"""


def can_isolate():
    return subprocess.run(["unshare", "--user", "--map-root-user", "--mount", "--pid", "--fork", "true"], check=False,
                          capture_output=True).returncode == 0


@pytest.fixture(scope="module")
def tree(tmp_path_factory):
    top = tmp_path_factory.mktemp("tree")
    outside = tmp_path_factory.mktemp("elsewhere") / "precious"
    outside.write_text("stays")
    (top / "parts").mkdir()
    (top / "CMakeLists.txt").write_text(CMAKE)
    (top / "parts" / "Parts.h").write_text(PARTS_HEADER)
    (top / "parts" / "Parts.cpp").write_text(PARTS)
    (top / "Tests.cpp").write_text(TESTS.replace("OUTSIDE", str(outside)))
    (top / ".gitignore").write_text("/build/\n")
    shutil.copytree(SCRIPTS / "mutation", top / "scripts" / "mutation", ignore=shutil.ignore_patterns("__pycache__"))
    shutil.copy(SCRIPTS / "mutate", top / "scripts" / "mutate")
    subprocess.run(["git", "init", "-q", top], check=True)
    return top, outside


def mutate(top, *arguments):
    return subprocess.run([top / "scripts" / "mutate", *arguments], check=False, capture_output=True, text=True, timeout=300)


@pytest.fixture(scope="module")
def run(tree):
    if not can_isolate():
        pytest.skip("no namespaces here")
    done = mutate(tree[0], "--jobs", "1", "parts")
    assert done.returncode == 0, done.stderr
    return done


def survivors(tree):
    return [line.split(" ", 1)[0] + " " + re.sub(r"^\S+\s+\S+ ", "", line)
            for line in (tree[0] / "build" / "mutate" / "survivors").read_text().splitlines()]


def test_lists_conditions_comparisons_sums_and_statements_but_no_constants_and_macros(tree):
    listed = [re.sub(r"^\w{8} ", "", line) for line in mutate(tree[0], "--list", "parts").stdout.splitlines()]
    assert "parts/Parts.h:3: isEven: always true: number % 2 == 0" in listed
    assert "parts/Parts.cpp:9: isSmall: <= for <: number < 10" in listed
    assert "parts/Parts.cpp:18: sumTo: - for +: sum + next" in listed
    assert "parts/Parts.cpp:17: sumTo: left out: ++next" in listed
    assert "parts/Parts.cpp:28: removeInside: left out: ::unlink(path.c_str())" in listed
    assert not [line for line in listed if "isWide" in line or "sizeof" in line or "CHECKED" in line]
    assert not [line for line in listed if "always true: next != last" in line]


def test_names_what_survives_and_why(tree, run):
    left = survivors(tree)
    assert "survived parts/Parts.cpp:10: isLarge: >= for >: number > 100" in left
    assert "unreached parts/Parts.cpp:23: neverAsked: always true: number > 0" in left
    assert "unreached parts/Parts.cpp:28: removeInside: left out: ::unlink(path.c_str())" in left
    assert "same parts/Parts.cpp:26: removeInside: always true: path.find(folder) != 0" in left
    assert not [line for line in left if "isSmall" in line or "isEven" in line or "sumTo" in line]


def totals(done):
    return dict(zip("mutants killed failed crashed hung survived same unreached open".split(),
                    map(int, re.search(r"^all +([\d ]+)$", done.stdout, re.MULTILINE)[1].split())))


def test_counts_what_was_tried_and_how_it_ended(tree, run):
    total = totals(run)
    assert total["mutants"] == total["killed"] + total["survived"] + total["same"] + total["unreached"]
    assert total["open"] == 0
    assert total["hung"] == 1  # the loop without its step
    assert total["survived"] == 1


def test_leaves_out_and_tells_of_a_test_that_fails_by_itself(tree, run):
    assert "Parts.failsAlready fails without any mutant and is left out" in run.stderr


def test_a_mutant_can_harm_nothing_outside_its_sandbox(tree, run):
    assert not [line for line in survivors(tree) if "always false: path.find(folder) != 0" in line]
    assert tree[1].read_text() == "stays"


def test_tries_only_survivors_again(tree, run):
    again = mutate(tree[0], "--jobs", "1", "parts")
    assert re.search(r"^1 to try$", again.stdout, re.MULTILINE)
    assert survivors(tree) == survivors(tree)


def test_shows_the_tests_of_one_mutant(tree, run):
    identifier = re.search(r"^survived +(\w{8}) ", (tree[0] / "build" / "mutate" / "survivors").read_text(), re.MULTILINE)[1]
    shown = mutate(tree[0], "--only", identifier, "parts").stdout
    assert "Parts.knowsLargeNumbersRoughly" in shown and "Parts.sums" not in shown
    assert shown.splitlines()[-1].strip() == "survived"


def test_tries_a_sample_and_counts_the_rest_as_open(tree, run):
    sampled = mutate(tree[0], "--jobs", "1", "--fresh", "--sample", "2", "parts")
    assert re.search(r"^2 to try$", sampled.stdout, re.MULTILINE)
    tried, all_tried = totals(sampled), totals(run)
    assert tried["killed"] + tried["survived"] == 2
    assert tried["open"] == all_tried["killed"] + all_tried["survived"] - 2
