#include "support/test.h"
#include "tcrypto/context.h"
#include "tcrypto/plugin.h"
#include "tcrypto/provider.h"
#include "tcrypto/tcrypto.h"
#include "th/log.h"

namespace {

using testing::HasSubstr;

std::atomic<int> live_states;
int create_result, uninits;
bool destroyed_late;

int create_state(const tcrypto_algorithm *, void **state) {
    *state = create_result == 0 ? &live_states : nullptr;
    live_states += create_result == 0;
    return create_result;
}
void destroy_state(void *state) {
    if (state)
        --live_states;
    destroyed_late |= uninits != 0;
}

tcrypto_algorithm made_up(const char *name, std::uint32_t kind = TCRYPTO_MAC) {
    tcrypto_algorithm algorithm{.kind = kind, .ctx_create = create_state, .ctx_destroy = destroy_state};
    std::snprintf(algorithm.name, sizeof(algorithm.name), "%s", name);
    return algorithm;
}

const tcrypto_algorithm BOTH_HAVE = made_up("both"), ONLY_SECOND = made_up("second");

int provider_result;
constexpr tcrypto_provider provider(int (*start)(), std::uint32_t version = 1) {
    return {version, start, [] { ++uninits; }, [] { return "made up"; }};
}
constexpr auto FIRST =
    provider([] { return provider_result != 0 ? provider_result : register_algorithm(&BOTH_HAVE); });
constexpr auto SECOND =
    provider([] { return register_algorithm(&BOTH_HAVE) + register_algorithm(&ONLY_SECOND); });
constexpr auto NEWER = provider(FIRST.init, 2);
constexpr auto REENTRANT = provider([] { return tcrypto_digest_supported("sha256", nullptr, 0); });

class Library : public testing::Test {
protected:
    void SetUp() override {
        create_result = provider_result = uninits = 0;
        ASSERT_EQ(tcrypto_init(0, nullptr), 0);
    }
    void TearDown() override {
        do
            tcrypto_uninit();
        while (tcrypto_got_plugins() == 1);
        EXPECT_EQ(live_states, 0);
    }

    static tcrypto_plugin *add(const char *name, const char *tags, const tcrypto_provider *provider) {
        tcrypto_plugin *plugin = nullptr;
        EXPECT_EQ(tcrypto_add_plugin(name, tags, &plugin), 0);
        EXPECT_EQ(tcrypto_supply_provider(plugin, provider), 0);
        return plugin;
    }
    static std::string served_by(std::uint32_t kind, const char *name, const char *plugin) {
        tcrypto_ctx_ptr ctx;
        const int rc = tcrypto_request_algorithm(kind, name, plugin, 0, th_out(ctx));
        EXPECT_EQ(rc == 0, ctx != nullptr);
        return rc == 0 ? tcrypto_plugin_name(ctx.get()) : std::to_string(rc);
    }
};

TEST_F(Library, TheLastUninitTearsDownAndInitWorksAgain) {
    EXPECT_EQ(tcrypto_init(0, "other"), TCRYPTO_E_UNSUPPORTED);
    EXPECT_EQ(tcrypto_init(0, "openssl"), 0);
    EXPECT_EQ(tcrypto_uninit(), 0);
    EXPECT_EQ(tcrypto_digest_supported("sha256", nullptr, 0), 0);
    EXPECT_EQ(tcrypto_uninit(), 0);
    EXPECT_EQ(tcrypto_got_plugins(), 0);
    EXPECT_EQ(tcrypto_digest_supported("sha256", nullptr, 0), TCRYPTO_E_NOT_INITIALIZED);
    EXPECT_EQ(tcrypto_uninit(), 0) << "stays at zero";
    EXPECT_EQ(tcrypto_init(1, nullptr), 0);
    EXPECT_EQ(tcrypto_digest_supported("sha256", nullptr, 0), 0);
}

TEST_F(Library, RequestsAnswerByKindAndExactName) {
    static constexpr std::tuple<std::uint32_t, const char *, const char *, const char *> CASES[] = {
        {TCRYPTO_DIGEST, "sha256", "any", "openssl"},
        {TCRYPTO_DIGEST, "SHA256", nullptr, "-400"},
        {TCRYPTO_RNG, "sha256", nullptr, "-400"},
        {0, "sha256", nullptr, "-401"},
        {9, "sha256", nullptr, "-401"},
        {TCRYPTO_DIGEST, nullptr, nullptr, "-1"},
    };
    for (const auto &[kind, name, plugin, answer] : CASES) {
        EXPECT_EQ(served_by(kind, name, plugin), answer);
        const int rc = tcrypto_request_algorithm(kind, name, plugin, 0, nullptr);
        EXPECT_EQ(rc == 0 ? "openssl" : std::to_string(rc), answer) << "asked without a context";
    }
    using requests = decltype(&tcrypto_digest_request);
    static constexpr std::tuple<std::uint32_t, const char *, requests> KINDS[] = {
        {TCRYPTO_DIGEST, "sha1", tcrypto_digest_request},
        {TCRYPTO_RNG, "drbg-ctr-192", tcrypto_rng_request},
        {TCRYPTO_KEYGEN, "dh", tcrypto_keygen_request},
        {TCRYPTO_SIGNATURE, "dsa-with-sha1", tcrypto_signature_request},
        {TCRYPTO_CIPHER, "aes-256-xts", tcrypto_cipher_request},
        {TCRYPTO_MAC, "hmac-sha3-512", tcrypto_mac_request},
        {TCRYPTO_KDF, "hkdf-sha1", tcrypto_kdf_request},
        {TCRYPTO_X509, "x509", tcrypto_x509_request},
    };
    tcrypto_ctx_ptr ctx;
    for (const auto &[kind, name, request] : KINDS) {
        ASSERT_EQ(request(name, nullptr, 0, th_out(ctx)), 0) << name;
        EXPECT_EQ(ctx->algorithm->kind, kind);
    }
    EXPECT_EQ(tcrypto_digest_supported("sha1", nullptr, 0) +
                  tcrypto_rng_supported("drbg-ctr-192", nullptr, 0) +
                  tcrypto_keygen_supported("dh", nullptr, 0) +
                  tcrypto_signature_supported("dsa-with-sha1", nullptr, 0),
              0);
    const char *plugin = "*";
    std::uint32_t id = 0;
    for (const char *generator : {"symmetric", "rsa", "dsa", "dh", "ec", "ed25519", "ed448"}) {
        ASSERT_EQ(tcrypto_find_keygen_by_alg(++id, th_out(ctx), &plugin), 0);
        EXPECT_STREQ(ctx->algorithm->name, generator);
        EXPECT_STREQ(plugin, "openssl");
    }
    EXPECT_EQ(tcrypto_find_keygen_by_alg(99, th_out(ctx), nullptr), TCRYPTO_E_NO_ALGORITHM);
}

TEST_F(Library, EveryErrorHasItsNumberAndText) {
    std::uint64_t sum = 14695981039346656037U;
    for (int code = 0; code > -1000; --code)
        for (const char *text = tcrypto_strerror(code); *text; ++text)
            sum = (sum ^ static_cast<unsigned char>(*text) ^ static_cast<std::uint64_t>(-code)) *
                  1099511628211U;
    EXPECT_EQ(sum, 11596823601401614148U) << "of all numbers and texts";
    EXPECT_STREQ(tcrypto_strerror(1), "unknown tcrypto error");
}

TEST_F(Library, TagLists) {
    static constexpr std::tuple<const char *, int, const char *, const char *> CASES[] = {
        {",alpha,,beta,", 0, "beta", "alph"},
        {"alpha,*", 0, "whatever", nullptr},
        {nullptr, 0, nullptr, "alpha"},
        {"alpha,b*", TCRYPTO_E_CONFIG, nullptr, "alpha"}};
    for (const auto &[tags, code, served, unserved] : CASES) {
        tcrypto_uninit();  // also of "openssl", which would serve every tag
        tcrypto_plugin *plugin = nullptr, *found = nullptr;
        EXPECT_EQ(tcrypto_add_plugin("tagged", tags, &plugin), code);
        EXPECT_EQ(tcrypto_find_plugin("other", served, &found), served ? 0 : TCRYPTO_E_NO_ENTRY);
        EXPECT_EQ(found, served ? plugin : nullptr);
        EXPECT_EQ(tcrypto_find_plugin("other", unserved, &found), TCRYPTO_E_NO_ENTRY);
    }
    tcrypto_plugin *const plugin = add("twice", "one", &FIRST), *again = nullptr;
    EXPECT_EQ(tcrypto_add_plugin("twice", "two,three", &again), TCRYPTO_E_EXISTS);
    EXPECT_EQ(again, plugin);
    EXPECT_EQ(tcrypto_add_plugin("twice", "four,**", &again), TCRYPTO_E_CONFIG);
    EXPECT_STREQ(plugin->tags.text().get(), " one two three");
}

TEST_F(Library, TheNextPluginAnswersWhatTheFirstLacksOrIsUnboundFor) {
    add("first", "ours,alone", &FIRST);
    add("second", "ours", &SECOND);
    provider_result = -105;
    EXPECT_EQ(served_by(TCRYPTO_MAC, "both", "ours"), "second");
    EXPECT_EQ(served_by(TCRYPTO_MAC, "both", "alone"), "-105") << "and nobody else to ask";
    provider_result = 0;
    EXPECT_EQ(served_by(TCRYPTO_MAC, "both", "ours"), "first") << "tried again at the next request";
    EXPECT_EQ(served_by(TCRYPTO_MAC, "second", "ours"), "second");
    EXPECT_EQ(served_by(TCRYPTO_MAC, "second", "alone"), "-400");
    create_result = -403;
    EXPECT_EQ(served_by(TCRYPTO_MAC, "both", "ours"), "-403");
}

TEST_F(Library, BindingLogsWhyItFails) {
    const std::tuple<const char *, const tcrypto_provider *, int, const char *> cases[] = {
        {"newer", &NEWER, TCRYPTO_E_INCOMPATIBLE,
         "tcrypto_plugin: plugin version (2) incompatible with tcrypto library version (1) ["},
        {"failing", &FIRST, -7, "tcrypto_plugin: 'failing' plugin initialization failed ["},
        {"none", nullptr, TCRYPTO_E_PLUGIN_LOAD, ""},
        {"reentrant", &REENTRANT, EDEADLK, "tcrypto_static: failed to lock library mutex ["},
    };
    provider_result = -7;
    for (const auto &[name, provider, code, text] : cases) {
        tcrypto_plugin *const plugin = add(name, nullptr, provider);
        EXPECT_THAT(stderr_of([&, wanted = code] { EXPECT_EQ(tcrypto_bind_plugin(plugin), wanted); }),
                    HasSubstr(text));
        EXPECT_EQ(plugin->provider, nullptr);
    }
    EXPECT_THAT(stderr_of([] { EXPECT_EQ(tcrypto_bind_plugins(2), EDEADLK) << "the last one's"; }),
                HasSubstr("failed to load plugin newer (plugin incompatible with library) ["));
    EXPECT_EQ(tcrypto_digest_supported("md5", nullptr, 0), 0) << "the others are bound";
    tcrypto_plugin *openssl = nullptr;
    ASSERT_EQ(tcrypto_find_plugin("openssl", nullptr, &openssl), 0);
    EXPECT_EQ(tcrypto_bind_plugin(openssl), TCRYPTO_E_PLUGIN_LOADED);
    EXPECT_EQ(tcrypto_bind_plugins(1), 0) << "only the first, which is bound";
}

TEST_F(Library, UnusableDescriptorsAndOperationsThatOneLacksAreRefused) {
    tcrypto_algorithm bare = made_up("a", TCRYPTO_DIGEST), no_create = bare, no_destroy = bare;
    no_create.ctx_create = nullptr;
    no_destroy.ctx_destroy = nullptr;
    bare.digest.digest_size = 8;
    const tcrypto_algorithm no_block_size = bare, blank = made_up(" \t"), ninth = made_up("nine", 9);
    const std::pair<const tcrypto_algorithm *, const char *> cases[] = {
        {nullptr, ""},
        {&no_create, ""},
        {&no_destroy, ""},
        {&no_block_size, ""},
        {&blank, "invalid algorithm name ' \t' ["},
        {&ninth, "invalid algorithm type '9' for 'nine' ["}};
    EXPECT_EQ(register_algorithm(&BOTH_HAVE), TCRYPTO_E_NOT_INITIALIZED) << "nothing is bound yet";
    ASSERT_EQ(tcrypto_bind_plugins(1), 0);
    for (const auto &c : cases) {
        const auto add = [&] { EXPECT_EQ(register_algorithm(c.first), TCRYPTO_E_PARAMETERS); };
        EXPECT_THAT(stderr_of(add), HasSubstr(c.second));
    }
    bare.digest.block_size = 8;
    ASSERT_EQ(register_algorithm(&bare), 0);
    tcrypto_ctx_ptr ctx;
    ASSERT_EQ(tcrypto_digest_request("a", nullptr, 0, th_out(ctx)), 0);
    EXPECT_EQ(tcrypto_digest_init(ctx.get()), TCRYPTO_E_NO_FUNCTION);
    EXPECT_EQ(tcrypto_rng_instantiate(ctx.get(), nullptr, 0), TCRYPTO_E_ALGORITHM_TYPE);
}

TEST_F(Library, UninitTakesContextsThatHoldOthersOfAnyProvider) {
    static tcrypto_ctx *held;
    for (const bool older_holds : {true, false}) {
        SCOPED_TRACE(older_holds);
        uninits = 0;
        destroyed_late = false;
        tcrypto_plugin *const first = add("first", "ours", &FIRST);
        add("second", "theirs", &SECOND);
        tcrypto_ctx *older = nullptr, *newer = nullptr, *released = nullptr, *newest = nullptr;
        const auto request = [](const char *tag, tcrypto_ctx **out) {
            EXPECT_EQ(tcrypto_request_algorithm(TCRYPTO_MAC, "both", tag, 0, out), 0);
        };
        request("ours", &older);
        request(older_holds ? "ours" : "theirs", &newer);
        request("ours", &released);
        ASSERT_EQ(tcrypto_get_algorithm(first, TCRYPTO_MAC, "both", &newest), 0);
        EXPECT_EQ(live_states, 4);
        tcrypto_release_ctx(released);
        held = older_holds ? newer : older;
        (older_holds ? older : newer)->cleanup = [](tcrypto_ctx *) { tcrypto_release_ctx(held); };
        EXPECT_EQ(tcrypto_uninit(), 0);
        EXPECT_EQ(live_states, 0);
        EXPECT_EQ(uninits, older_holds ? 1 : 2);
        EXPECT_FALSE(destroyed_late) << "by a provider that is gone";
        ASSERT_EQ(tcrypto_init(0, nullptr), 0);
    }
}

TEST_F(Library, ListingShowsTagsStatusAndAlgorithms) {
    add("idle", "x,y", &FIRST);
    ASSERT_EQ(tcrypto_bind_plugins(1) + th_log_update_config("tcrypto_plugin:stdout=info"), 0);
    testing::internal::CaptureStdout();
    tcrypto_print_plugins();
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::AllOf(HasSubstr(": Plugin: openssl ["), HasSubstr(": \tStatus: active ["),
                               HasSubstr(": \tDescription: "), HasSubstr("digest: blake3 ["),
                               HasSubstr(": \tTags: x y ["), HasSubstr(": \tStatus: inactive [")));
}

TEST_F(Library, ThreadsShareTheLibrary) {
    tcrypto_uninit();
    const auto work = [] {
        for (int round = 0; round < 50; ++round) {
            EXPECT_EQ(tcrypto_init(0, nullptr), 0);
            tcrypto_ctx_ptr ctx;
            EXPECT_EQ(tcrypto_digest_request("blake2b256", nullptr, 0, th_out(ctx)), 0);
            std::uint8_t out[32];
            EXPECT_EQ(tcrypto_digest(ctx.get(), "abc", 3, out, nullptr), 0);
            EXPECT_EQ(out[0], 0xbd);
            ctx.reset();
            EXPECT_EQ(tcrypto_uninit(), 0);
        }
    };
    const std::jthread first(work), second(work), third(work), fourth(work);
}

}  // namespace
