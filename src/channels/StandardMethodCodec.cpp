#include "channels/StandardMethodCodec.h"

#include <utility>
#include <variant>

#include "channels/StandardCodecReader.h"
#include "channels/StandardCodecWriter.h"

namespace quillbeam {

namespace {

enum class Envelope : std::uint8_t { success = 0, error = 1 };

Bytes encodeSuccess(const Value& value) {
  StandardCodecWriter writer;
  writer.writeByte(static_cast<std::uint8_t>(Envelope::success));
  writer.writeValue(value);
  return writer.take();
}

Bytes encodeError(const MethodError& error) {
  StandardCodecWriter writer;
  writer.writeByte(static_cast<std::uint8_t>(Envelope::error));
  writer.writeValue(error.code);
  writer.writeValue(error.message);
  writer.writeValue(error.details);
  return writer.take();
}

Result<MethodReply> readError(StandardCodecReader& reader) {
  TRY(const Value code, reader.readValue());
  TRY(const Value message, reader.readValue());
  TRY(Value details, reader.readValue());
  if (!reader.atEnd()) {
    TRY(const Value stackTrace, reader.readValue());
    if (!stackTrace.isNil() && stackTrace.asString() == nullptr) return reader.malformed("the stack trace is no text");
  }
  if (code.asString() == nullptr) return reader.malformed("the error code is no text");
  if (!message.isNil() && message.asString() == nullptr) return reader.malformed("the error message is no text");
  MethodError error{*code.asString(), std::nullopt, std::move(details)};
  if (const std::string* text = message.asString()) error.message = *text;
  return MethodReply(std::move(error));
}

Result<MethodReply> readEnvelope(StandardCodecReader& reader) {
  TRY(const std::uint8_t kind, reader.readByte());
  switch (static_cast<Envelope>(kind)) {
    case Envelope::success: {
      TRY(Value value, reader.readValue());
      return MethodReply(std::move(value));
    }
    case Envelope::error:
      return readError(reader);
  }
  return reader.malformed("there is no envelope of this kind");
}

}  // namespace

Bytes StandardMethodCodec::encodeCall(std::string_view method, const Value& arguments) {
  StandardCodecWriter writer;
  writer.writeValue(method);
  writer.writeValue(arguments);
  return writer.take();
}

Result<MethodCall> StandardMethodCodec::decodeCall(ByteSpan message) {
  StandardCodecReader reader(message);
  TRY(const Value method, reader.readValue());
  TRY(Value arguments, reader.readValue());
  if (!reader.atEnd()) return reader.malformed("it goes on after the arguments");
  if (method.asString() == nullptr) return reader.malformed("the method's name is no text");
  return MethodCall{*method.asString(), std::move(arguments)};
}

Bytes StandardMethodCodec::encodeReply(const MethodReply& reply) {
  if (const auto* value = std::get_if<Value>(&reply)) return encodeSuccess(*value);
  if (const auto* error = std::get_if<MethodError>(&reply)) return encodeError(*error);
  return {};
}

Result<MethodReply> StandardMethodCodec::decodeReply(ByteSpan message) {
  if (message.empty()) return MethodReply(NotImplemented());
  StandardCodecReader reader(message);
  TRY(MethodReply reply, readEnvelope(reader));
  if (!reader.atEnd()) return reader.malformed("it goes on after the envelope");
  return reply;
}

}  // namespace quillbeam
