// protoc-gen-quill: a protoc plugin that turns a message file into C records and their codec.
//
//   protoc -I DIR --quill_out=OUT DIR/nyx.proto     writes OUT/quill_nyx.h and OUT/quill_nyx.cpp
#include <google/protobuf/compiler/code_generator.h>
#include <google/protobuf/compiler/plugin.h>
#include <google/protobuf/io/printer.h>
#include <google/protobuf/io/zero_copy_stream.h>

#include <memory>

#include "model.h"
#include "writers.h"

namespace {

class generator : public google::protobuf::compiler::CodeGenerator {
  public:
    bool Generate(const google::protobuf::FileDescriptor *file, const std::string & /*parameter*/,
                  google::protobuf::compiler::GeneratorContext *context, std::string *error) const override {
        const auto model = quillgen::build_model(*file, *error);
        if (!model) {
            return false;
        }
        emit(*model, model->prefix + ".h", quillgen::write_header, *context);
        emit(*model, model->prefix + ".cpp", quillgen::write_source, *context);
        return true;
    }

  private:
    using writer = void (*)(const quillgen::message_file &, google::protobuf::io::Printer &);

    static void emit(const quillgen::message_file &model, const std::string &name, writer write,
                     google::protobuf::compiler::GeneratorContext &context) {
        const std::unique_ptr<google::protobuf::io::ZeroCopyOutputStream> stream(context.Open(name));
        google::protobuf::io::Printer printer(stream.get(), '$');
        write(model, printer);
    }
};

}  // namespace

int main(int argc, char **argv) {
    const generator quill;
    return google::protobuf::compiler::PluginMain(argc, argv, &quill);
}
