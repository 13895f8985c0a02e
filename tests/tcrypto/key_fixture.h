// Keys for the crypto tests: files that the openssl command makes, each when it
// is first asked for, and verbs that load them.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tcrypto/tcrypto.h"

using byte_vector = std::vector<std::uint8_t>;

inline byte_vector to_bytes(std::string_view text) {
    return {text.begin(), text.end()};
}
inline std::string_view to_text(const byte_vector &bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

class key_test : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(tcrypto_init(0, nullptr), 0); }
    void TearDown() override { tcrypto_uninit(); }

    // Runs a command in the folder of the key files.
    static bool run(const std::string &command) {
        return std::system(("cd '" + folder().path() + "' && exec >/dev/null 2>&1 && " + command).c_str()) ==
               0;
    }

    // STEM.pem is made by a recipe; STEM.der, STEM.pub.pem and STEM.pub.der are its
    // other forms; further names have recipes of their own.
    static std::string key_file(const std::string &name) {
        const std::string path = folder() / name;
        if (!std::filesystem::exists(path))
            make(name);
        EXPECT_TRUE(std::filesystem::exists(path)) << name;
        return path;
    }

    static tcrypto_ctx_ptr keygen(const char *name) {
        tcrypto_ctx_ptr ctx;
        EXPECT_EQ(tcrypto_keygen_request(name, nullptr, 0, th_out(ctx)), 0) << name;
        return ctx;
    }

    static tcrypto_key_ptr load(const char *generator, const std::string &name, std::uint32_t type) {
        tcrypto_key_ptr key;
        EXPECT_EQ(tcrypto_load_key_from_file(keygen(generator).get(), th_out(key), key_file(name).c_str(),
                                             type, TCRYPTO_FORMAT_PEM),
                  0)
            << name;
        return key;
    }
    static tcrypto_key_ptr private_key(const char *generator, const std::string &stem) {
        return load(generator, stem + ".pem", TCRYPTO_KEY_PRIVATE);
    }
    static tcrypto_key_ptr public_key(const char *generator, const std::string &stem) {
        return load(generator, stem + ".pub.pem", TCRYPTO_KEY_PUBLIC);
    }

    static const temp_dir &folder() {
        static const temp_dir instance;
        return instance;
    }

private:
    struct recipe {
        std::string name;
        std::string from;
        std::string command;
    };

    static void make(const std::string &name) {
        static const std::vector<recipe> recipes = {
            {"rsa.pem", "", "genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048"},
            {"rsapss.pem", "", "genpkey -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:1024"},
            {"dsa.pem", "", "dsaparam -genkey 1024 | openssl pkey"},
            {"dh.pem", "", "genpkey -algorithm DHX -pkeyopt dh_rfc5114:2"},
            {"ec.pem", "", "genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256"},
            {"p521.pem", "", "genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-521"},
            {"explicit.pem", "",
             "ecparam -name prime256v1 -genkey -noout -param_enc explicit | openssl pkey"},
            {"sm2.pem", "", "genpkey -algorithm SM2"},
            {"ed25519.pem", "", "genpkey -algorithm ED25519"},
            {"ed448.pem", "", "genpkey -algorithm ED448"},
            {"rsa.pkcs1.pem", "rsa.pem", "rsa -traditional -in rsa.pem"},
            {"rsa.pkcs1.der", "rsa.pem", "rsa -traditional -outform DER -in rsa.pem"},
            {"rsa.pkcs1.pub.pem", "rsa.pem", "rsa -RSAPublicKey_out -in rsa.pem"},
            {"rsa.locked1.pem", "rsa.pem", "rsa -traditional -aes128 -passout pass:word -in rsa.pem"},
            {"rsa.locked8.pem", "rsa.pem", "pkey -aes128 -passout pass:word -in rsa.pem"},
            {"rsa.locked8.der", "rsa.pem", "pkcs8 -topk8 -passout pass:word -outform DER -in rsa.pem"},
            {"rsa.cert.pem", "rsa.pem", "req -x509 -subj /CN=x -key rsa.pem"},
            {"ec.sec1.pem", "ec.pem", "ec -in ec.pem"},
            {"ec.sec1.der", "ec.pem", "ec -outform DER -in ec.pem"},
        };
        for (const recipe &row : recipes) {
            if (row.name != name)
                continue;
            if (!row.from.empty())
                key_file(row.from);
            EXPECT_TRUE(run("{ openssl " + row.command + "; } > " + name)) << row.command;
            return;
        }
        const std::string source = name.substr(0, name.find('.')) + ".pem";
        key_file(source);
        const bool is_public = name.find(".pub.") != name.npos;
        EXPECT_TRUE(run(std::string("openssl ") + (is_public ? "pkey -pubout" : "pkcs8 -topk8 -nocrypt") +
                        (name.ends_with(".der") ? " -outform DER" : "") + " -in " + source + " -out " + name))
            << name;
    }
};
