// Whole lines out of a byte stream, as an async iterator of Buffers without their line feed.
export async function* lines(stream) {
  let pieces = [];
  for await (const chunk of stream) {
    let start = 0;
    for (let end = chunk.indexOf(10); end >= 0; end = chunk.indexOf(10, start)) {
      pieces.push(chunk.subarray(start, end));
      yield pieces.length === 1 ? pieces[0] : Buffer.concat(pieces);
      pieces = [];
      start = end + 1;
    }
    if (start < chunk.length) pieces.push(chunk.subarray(start));
  }
}
