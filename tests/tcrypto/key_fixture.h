// Keys for the crypto tests: files that the openssl command makes, each when it is first
// asked for, and verbs that load them.
#pragma once

#include "support/temp_dir.h"
#include "support/test.h"
#include "tcrypto/tcrypto.h"

class key_test : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(tcrypto_init(0, nullptr), 0); }
    void TearDown() override { tcrypto_uninit(); }

    static const temp_dir &folder() {
        static const temp_dir instance;
        return instance;
    }

    // Runs a command in the folder of the key files.
    static bool run(const std::string &command) {
        return std::system(("exec >/dev/null 2>&1; cd " + folder().path() + " && " + command).c_str()) == 0;
    }

    // STEM.pem and further names have a recipe, which finds STEM.pem there;
    // STEM.der, STEM.pub.pem and STEM.pub.der are the other forms of STEM.pem.
    static std::string key_file(const std::string &name) {
        static const std::map<std::string, std::string> recipes = {
            {"rsa.pem", "genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048"},
            {"dsa.pem", "dsaparam -genkey 1024 | openssl pkey"},
            {"dh.pem", "genpkey -algorithm DHX -pkeyopt dh_rfc5114:2"},
            {"ec.pem", "genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256"},
            {"explicit.pem", "ecparam -name prime256v1 -genkey -noout -param_enc explicit | openssl pkey"},
            {"ed25519.pem", "genpkey -algorithm ED25519"},
            {"ed448.pem", "genpkey -algorithm ED448"},
            {"other448.pem", "genpkey -algorithm ED448"},
            {"rsa.pkcs1.pem", "rsa -traditional -in rsa.pem"},
            {"rsa.pkcs1.der", "rsa -traditional -outform DER -in rsa.pem"},
            {"rsa.cert.pem", "req -x509 -subj /CN=x -key rsa.pem"},
            {"ec.sec1.der", "ec -outform DER -in ec.pem"},
            {"ec.parameters.pem", "ecparam -name prime256v1; openssl ec -in ec.pem"},
        };
        const std::string source = name.substr(0, name.find('.')) + ".pem";
        if (std::filesystem::exists(folder() / name))
            return folder() / name;
        if (name != source)
            key_file(source);
        std::string command = name.find(".pub.") == name.npos ? "pkcs8 -topk8 -nocrypt" : "pkey -pubout";
        command += std::string(name.ends_with(".der") ? " -outform DER" : "") + " -in " + source;
        if (const auto recipe = recipes.find(name); recipe != recipes.end())
            command = recipe->second;
        EXPECT_TRUE(run("{ openssl " + command + "; } > " + name)) << command;
        return folder() / name;
    }

    static tcrypto_ctx_ptr request(std::uint32_t kind, const std::string &name) {
        tcrypto_ctx_ptr ctx;
        const int rc = tcrypto_request_algorithm(kind, name.c_str(), nullptr, 0, th_out(ctx));
        EXPECT_EQ(rc == 0, ctx != nullptr) << name;
        return ctx;
    }
    static tcrypto_ctx_ptr keygen(const std::string &name) { return request(TCRYPTO_KEYGEN, name); }
    // The public half for a name with ".pub.", else the private one.
    static tcrypto_key_ptr load(const std::string &generator, const std::string &name) {
        const auto from_file =
            name.find(".pub.") != name.npos ? tcrypto_pubkey_from_file : tcrypto_privkey_from_file;
        const std::string path = key_file(name);
        const tcrypto_ctx_ptr ctx = keygen(generator);
        tcrypto_key_ptr key;
        const int rc = !ctx ? -1 : from_file(ctx.get(), th_out(key), path.c_str(), TCRYPTO_FORMAT_PEM);
        EXPECT_EQ(rc == 0, key != nullptr) << name;
        return key;
    }
};
