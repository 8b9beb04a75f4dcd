#include "channels/StandardMessageCodec.h"

#include "channels/StandardCodecReader.h"
#include "channels/StandardCodecWriter.h"

namespace quillbeam {

Bytes StandardMessageCodec::encode(const Value& value) {
  StandardCodecWriter writer;
  writer.writeValue(value);
  return writer.take();
}

Result<Value> StandardMessageCodec::decode(ByteSpan message) {
  StandardCodecReader reader(message);
  TRY(Value value, reader.readValue());
  if (!reader.atEnd()) return reader.malformed("it goes on after its value");
  return value;
}

}  // namespace quillbeam
