// Random operations on several handles of several files, from two machines, with engines that fail now and then, against
// plain arrays of bytes.
import assert from 'node:assert/strict';
import test from 'node:test';
import { Machine, MemoryObjects, readAll, TestDatabase } from './contentsSupport.mjs';

const seeds = process.env.KEMVI_TEST_SEEDS?.split(',').map(Number) ?? [1, 2, 3, 4];
const steps = Number(process.env.KEMVI_TEST_STEPS ?? 400);
const longest = 30_000; // bytes of a file

/** A generator of numbers that gives the same ones for the same seed. */
class Dice {
    constructor(seed) {
        this.state_ = seed;
    }

    below(limit) {
        this.state_ = (this.state_ + 0x6d2b79f5) | 0;
        let value = Math.imul(this.state_ ^ (this.state_ >>> 15), 1 | this.state_);
        value = (value + Math.imul(value ^ (value >>> 7), 61 | value)) ^ value;
        return ((value ^ (value >>> 14)) >>> 0) % limit;
    }

    one(things) {
        return things[this.below(things.length)];
    }
}

/** What a file must hold: committed, and as the machine sees it that writes to it. */
class ModelFile {
    constructor(file) {
        this.file = file;
        this.committed = Buffer.alloc(0);
        /** The machine with writes that are not known to be committed, and what it sees. */
        this.writer = undefined;
        this.seen = undefined;
        /** Whether a commit has failed, so that it may be done or not. */
        this.isUncertain = false;
        /** @type {{machine: Machine, handle: any}[]} */
        this.handles = [];
    }

    bytesFor(machine) {
        return machine === this.writer ? this.seen : this.committed;
    }

    write(machine, offset, data) {
        this.begin_(machine);
        const size = Math.max(this.seen.length, offset + data.length);
        const bytes = Buffer.alloc(size);
        this.seen.copy(bytes);
        data.copy(bytes, offset);
        this.seen = bytes;
    }

    truncate(machine) {
        if (this.bytesFor(machine).length === 0) return;
        this.begin_(machine);
        this.seen = Buffer.alloc(0);
    }

    committedNow() {
        if (this.writer) this.committed = this.seen;
        this.writer = undefined;
        this.isUncertain = false;
    }

    begin_(machine) {
        if (this.writer === undefined) this.seen = this.committed;
        this.writer = machine;
    }
}

class Run {
    constructor(seed, database, tree, machines, objects) {
        this.dice = new Dice(seed);
        this.database = database;
        this.machines = machines;
        this.failing = 0; // per cent of the requests
        for (const { engine } of machines) {
            engine.failBefore = () => this.fails();
            engine.failAfter = () => this.fails();
        }
        if (objects) objects.failing = () => this.fails();
    }

    fails() {
        return this.dice.below(100) < this.failing;
    }

    /** Another machine may write only when this one has committed: what both write at a time nobody has promised. */
    async step(model) {
        const machine = model.writer ?? this.dice.one(this.machines);
        const what = this.dice.below(100);
        if (what < 45) await this.write(model, machine);
        else if (what < 60) await this.read(model, this.dice.one(this.machines));
        else if (what < 75) await this.flush(model);
        else if (what < 85) await this.release(model);
        else if (what < 90) await this.truncate(model, machine);
        else this.failing = this.dice.one([0, 0, 0, 5, 30]);
    }

    async write(model, machine) {
        const handle = await this.handleOf(model, machine);
        const size = model.bytesFor(machine).length;
        const offset = this.dice.one([size, this.dice.below(size + 1), this.dice.below(longest), 1000 * this.dice.below(longest / 1000)]);
        const length = Math.min(longest - offset, this.dice.one([1, 10, 1000, 999, this.dice.below(9000)]));
        if (length <= 0) return;
        const data = Buffer.alloc(length, 1 + this.dice.below(255));
        try {
            await handle.write(offset, data);
        } catch (error) {
            this.mayFail(error); // there was no room, and nothing was written
            return;
        }
        model.write(machine, offset, data);
    }

    async read(model, machine) {
        if (model.isUncertain && machine !== model.writer) return;
        const expected = model.bytesFor(machine);
        try {
            const reader = await machine.open(model.file);
            const offset = this.dice.below(expected.length + 1);
            const length = 1 + this.dice.below(longest);
            const bytes = await readAll(reader, offset, length, this.dice.one([700, 4096, 65_536])).finally(() => reader.release());
            assert.equal(bytes.compare(expected.subarray(offset, offset + length)), 0, `bytes of ${offset}+${length}`);
        } catch (error) {
            this.mayFail(error);
        }
    }

    async flush(model) {
        const open = model.handles.find(({ machine }) => machine === model.writer);
        if (open === undefined) return;
        try {
            await open.handle.flush();
            model.committedNow();
        } catch (error) {
            this.mayFail(error);
            model.isUncertain = true;
        }
    }

    /** What cannot be committed when the last handle goes is lost: so it is flushed before, however often it takes. */
    async release(model) {
        if (model.handles.length === 0) return;
        if (model.writer) {
            this.failing = 0;
            await this.flush(model);
        }
        const [{ handle }] = model.handles.splice(this.dice.below(model.handles.length), 1);
        await handle.release();
    }

    async truncate(model, machine) {
        const handle = await machine.open(model.file, 'truncate');
        model.handles.push({ machine, handle });
        model.truncate(machine);
    }

    async handleOf(model, machine) {
        const known = model.handles.filter((each) => each.machine === machine);
        // A handle that was opened before another machine's commit may write onto what was there before.
        for (const each of known) {
            if (this.dice.below(3) > 0 && machine === model.writer) return each.handle;
        }
        const handle = await machine.open(model.file, 'write');
        model.handles.push({ machine, handle });
        return handle;
    }

    mayFail(error) {
        if (error.code !== 'EIO' || this.failing === 0) throw error;
    }

    async end(models) {
        this.failing = 0;
        for (const model of models) {
            await this.flush(model);
            for (const machine of this.machines) await this.read(model, machine);
            for (const { handle } of model.handles) await handle.release();
            for (const machine of this.machines) {
                assert.equal((await machine.read(model.file)).compare(model.committed), 0);
            }
        }
    }
}

async function play(seed, objects, small) {
    const database = await TestDatabase.start();
    const tree = await database.tree({ chunkSize: 1000 });
    const engines = [database.engine, await database.second()];
    const machines = engines.map((engine) => new Machine(database, tree, { engine, objects, small, writing: 20_000, memory: 20_000 }));
    const run = new Run(seed, database, tree, machines, objects);
    const models = [];
    for (let count = 0; count < 3; count++) models.push(new ModelFile(await database.file(tree)));
    for (let step = 0; step < steps; step++) {
        try {
            await run.step(run.dice.one(models));
        } catch (error) {
            error.message = `step ${step}: ${error.message}`;
            throw error;
        }
    }
    await run.end(models);
    for (const { contents, said } of machines) {
        assert.equal(contents.parts_.room.used, 0);
        assert.deepEqual(said, []);
    }
    await checkObjects(database, tree, objects);
}

/** What chunks name is there; what is not named is garbage, or was left behind by what failed. */
async function checkObjects(database, tree, objects) {
    if (!objects) return;
    const rows = await database.engine.query('select object from kemvi_store.chunk where tree = $1 and object is not null', [tree.id]);
    for (const { object } of rows) assert.ok(objects.all.has(object), `object ${object}`);
    const named = new Set(rows.map(({ object }) => object));
    for (const object of await database.garbage(tree)) assert.ok(!named.has(object), `object ${object} is no garbage`);
}

for (const seed of seeds) {
    test(`database, seed ${seed}`, () => play(seed, undefined));
    const small = [0, 400, 999][seed % 3]; // bytes of a file that lies in the database all the same
    test(`objects, files of up to ${small} bytes in the database, seed ${seed}`, () => play(seed, new MemoryObjects(), small));
}
