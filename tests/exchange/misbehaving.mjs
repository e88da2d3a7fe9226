// A helper that misbehaves on purpose, in the way that KEMVI_MISBEHAVIOUR names.
import { createInterface } from "node:readline";

const kind = process.env.KEMVI_MISBEHAVIOUR;
if (kind === "exit") process.exit(3);

const answers = {
    environment: (id) => [{ id, ok: true, result: { environment: process.env, arguments: process.argv.slice(2) } }],
    garbage: () => ["this is no JSON"],
    wrongId: () => [{ id: "99", ok: true }],
    fail: (id) => [{ id, ok: false, error: { message: "no entry", code: "ENOENT" } }],
    twoLines: (id) => [{ id, ok: true, result: 1 }, { id: String(Number(id) + 1), ok: true, result: 2 }],
    big: (id) => [{ id, ok: true, result: "x".repeat(8 << 20) }],
};

for await (const line of createInterface({ input: process.stdin })) {
    const { id } = JSON.parse(line);
    if (kind === "halfLine") {
        process.stdout.write(`{"id":"${id}","ok":`, () => process.exit(0));
        break;
    }
    for (const answer of answers[kind](id))
        process.stdout.write(`${typeof answer === "string" ? answer : JSON.stringify(answer)}\n`);
}
