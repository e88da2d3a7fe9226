// Answers as another helper did while it was recorded: a mount is repeated without that helper. The recording is the
// file in KEMVI_RECORDING; without that, what KEMVI_REPO_ROOT names: a file, or the folder that holds one recording.
import { makeCodec } from '../src/base64/codec.mjs';
import { compileLate } from '../src/compilation.mjs';
import { runBlocking, writerTo } from '../src/loops.mjs';
import { findRecording, RecordingFile } from '../src/recording/recordingFile.mjs';
import { ReplaySession } from '../src/recording/replaySession.mjs';
import { LineBuffer } from '../src/requestLines.mjs';
import { takeStandardStreams } from '../src/standardStreams.mjs';

compileLate();

const report = (text) => console.error(`kemvi-helper: ${text}`);
const place = process.env.KEMVI_RECORDING ?? process.env.KEMVI_REPO_ROOT;
try {
    if (!place) throw new Error('neither KEMVI_RECORDING nor KEMVI_REPO_ROOT names a recording');
    const { input, output } = takeStandardStreams();
    const session = new ReplaySession(new RecordingFile(findRecording(place)), writerTo(output), report);
    if (session.payloads !== 'full') report('the recording holds no contents: files read as zeros');
    await runBlocking(input, new LineBuffer(makeCodec()), session);
} catch (error) {
    if (error.code !== 'EPIPE') {
        report(`cannot answer from a recording: ${error.message}`);
        process.exitCode = 1;
    }
}
