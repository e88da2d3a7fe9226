"""What needs no mount: the order of measurements, what is made of numbers, and how contestants are named."""
import importlib.machinery
import importlib.util
import sys
from pathlib import Path

import pytest

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

import growth
import peers
import targets
import workloads
from results import DESCRIPTIONS, Column, Results, Spread


def program():
    loader = importlib.machinery.SourceFileLoader('mount_benchmark', str(HERE / 'run'))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
    loader.exec_module(module)
    return module


def steps(**options):
    plan = program().Plan({'stat': ['A', 'B'], 'create': ['A', 'B']}, **options)
    return ' '.join(f'{workload}{repetition}{column}' for repetition, workload, column in plan.steps())


def test_pairs_stand_next_to_each_other_in_both_orders():
    assert steps(repetitions=2, pairs=True) == ('stat0A stat0B stat1B stat1A '
                                                'create0A create0B create1B create1A')


def test_without_pairs_a_repetition_goes_through_all_workloads():
    assert steps(repetitions=2, pairs=False) == ('stat0A stat0B create0A create0B '
                                                 'stat1A stat1B create1A create1B')


def test_a_spread_is_median_and_quartiles():
    assert Spread.of([5, 1, 4, 2, 3]) == (3, 2, 4)
    assert Spread.of([7]) == (7, 7, 7)


def made(workload, **values):
    results = Results([Column(name) for name in values], [workload], 'sshfs')
    for name, numbers in values.items():
        for number in numbers:
            results.add(Column(name), workload, number)
    return results


def test_speed_is_the_median_of_the_ratios_of_each_pair():
    # The machine was four times as slow in the second repetition, for both.
    rates = made('stat', sshfs=[100, 25, 100], kemvi=[150, 38, 160])
    assert rates.speed(Column('kemvi'), 'sshfs', 'stat').middle == pytest.approx(1.52)
    times = made('tarx', sshfs=[1, 4, 1], kemvi=[2, 8, 4])
    assert times.speed(Column('kemvi'), 'sshfs', 'tarx').middle == 0.5


def test_lives_are_compared_with_their_own_kind():
    results = Results([], ['stat'], 'sshfs')
    for column, value in ((Column('sshfs'), 10), (Column('sshfs', 'long'), 20), (Column('kemvi', 'long'), 30)):
        results.add(column, 'stat', value)
    assert results.speed(Column('kemvi', 'long'), 'sshfs', 'stat').middle == 1.5
    assert results.speed(Column('kemvi'), 'sshfs', 'stat') is None


def test_a_failure_is_no_number():
    results = made('stat', sshfs=[1, 1], kemvi=[1])
    results.fail(Column('kemvi'), 'stat', 'broken')
    assert results.median(Column('kemvi'), 'stat') is None
    assert results.speed(Column('kemvi'), 'sshfs', 'stat') is None


def group(aim):
    return targets.Group({'title': '', 'against': 'sshfs', 'columns': [['kemvi', 'fresh']], 'aims': {'stat': [aim]}})


def test_a_target_is_reached_or_missed():
    results = made('stat', sshfs=[10, 10, 10], kemvi=[14, 15, 16])
    assert '| 1.5 | 1.50 (1.45 to 1.55) |' in group(1.5).table(results)
    assert '| 1.6 | 1.50 (1.45 to 1.55) **missed** |' in group(1.6).table(results)
    assert 'no result' in group(1.5).table(made('stat', sshfs=[1]))


def test_targets_name_workloads_and_contestants_that_exist():
    for one in targets.all_groups():
        assert set(one.aims) <= set(workloads.BY_NAME)
        assert all(len(aims) == len(one.columns) for aims in one.aims.values())
        for column in one.needed():
            peers.Contestant(column.contestant)
        assert one.needed()[0] == Column(one.against)


def test_every_workload_has_a_description():
    assert set(DESCRIPTIONS) == set(workloads.BY_NAME)


def test_a_contestant_may_have_a_build_and_options(tmp_path):
    (tmp_path / 'CMakeCache.txt').write_text('X:STRING=1\nCMAKE_HOME_DIRECTORY:INTERNAL=/elsewhere\n')
    peer = peers.Contestant(f'kemvi@{tmp_path}:placement=off+ro').peer(tmp_path / 'work')
    assert peer.options == 'placement=off,ro'
    assert peer.command() == tmp_path / 'bin' / 'kemvi'
    assert peer.helper() == Path('/elsewhere/sdk/node/helpers/local.mjs')
    plain = peers.Contestant('kemvi').peer(tmp_path / 'plain')
    assert (plain.options, plain.build) == ('', peers.Kemvi.build)


@pytest.mark.parametrize('text', ['nobody', 'sshfs:ro', 'rclone@build'])
def test_a_contestant_that_cannot_be_is_refused(text):
    with pytest.raises(ValueError):
        peers.Contestant(text)


def test_growth_is_fitted():
    line = growth.Line(growth.CREATE, [growth.Point(size, size ** 2 / 1e6, 100 * size + 7, 0) for size in (10, 20, 40)])
    assert (line.exponent, line.explained) == (pytest.approx(2), pytest.approx(1))
    assert line.per_unit() == pytest.approx([10, 20, 40])
    assert line.bytes_per_unit('host') == pytest.approx(100)


def test_growth_of_bytes_is_counted_in_mebibytes():
    line = growth.Line(growth.READ, [growth.Point(size << 20, 0.5 * size, 0, 0) for size in (1, 2)])
    assert line.per_unit() == pytest.approx([5e5, 5e5])
    assert '| 1, 2 | 500000.0, 500000.0 | 1.00 |' in growth.table([line])
    assert growth.svg([line]).count('<polyline') == 2
