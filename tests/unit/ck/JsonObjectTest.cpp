#include "ck/CkJsonObject.h"

#include "support/Bytes.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <climits>

namespace {

using namespace std::string_literals;

CkJsonObject Loaded(std::string_view json) {
    CkJsonObject object;
    EXPECT_TRUE(object.Load(json)) << object.lastErrorText();
    return object;
}

TEST(CkJsonObject, Emit_WritesMembersCompactInTheOrderInWhichTheyCame) {
    CkJsonObject object;
    EXPECT_EQ(object.emit(), "{}");
    object.AppendInt("z", 1);
    object.AppendString("a", "text");
    object.AppendBool("m", false);
    object.AppendInt("b", INT_MIN);
    EXPECT_EQ(object.emit(), R"({"z":1,"a":"text","m":false,"b":-2147483648})");
}

TEST(CkJsonObject, Emit_LeavesSlashesAndNonAsciiUnescaped) {
    CkJsonObject object;
    object.AppendString("path", "a/b");
    object.AppendString("name", "आशा \xF0\x9F\x98\x80");
    EXPECT_EQ(object.emit(), "{\"path\":\"a/b\",\"name\":\"आशा \xF0\x9F\x98\x80\"}");
}

TEST(CkJsonObject, Emit_EscapesWhatJsonMustHaveEscaped) {
    CkJsonObject object;
    object.AppendString("a\"b", "\"\\\b\f\n\r\t\x01\x1F\x7F");
    EXPECT_EQ(object.emit(), "{\"a\\\"b\":\"\\\"\\\\\\b\\f\\n\\r\\t\\u0001\\u001f\x7F\"}");
}

TEST(CkJsonObject, Emit_IsReadBackByAnotherParserForEveryLengthAndPositionOfASpecialCharacter) {
    // Long texts are looked at in blocks.
    for (const std::string& special : {"\""s, "\\"s, "\n"s, "é"s, "\x1F"s})
        for (std::size_t position = 0; position < 200; ++position) {
            std::string text(200, 'x');
            text.replace(position, 1, special);
            CkJsonObject object;
            object.AppendString("t", text);
            ASSERT_EQ(nlohmann::json::parse(object.emit())["t"], text) << position;
        }
}

TEST(CkJsonObject, Emit_ReplacesEachByteThatIsNoUtf8) {
    CkJsonObject object;
    object.AppendString("\xFF", "a\x80z\xC3");
    EXPECT_EQ(object.emit(), "{\"\xEF\xBF\xBD\":\"a\xEF\xBF\xBDz\xEF\xBF\xBD\"}");
    for (const std::string& bytes :
         {"\xC0\xAF"s, "\xED\xA0\x80"s, "\xF4\x90\x80\x80"s, "\xE2\x82"s, "\xE2\x82x"s}) {
        CkJsonObject hostile;
        hostile.AppendString("t", bytes);
        EXPECT_TRUE(IsUtf8(hostile.emit())) << ToHex(bytes);
        EXPECT_TRUE(nlohmann::json::accept(hostile.emit())) << ToHex(bytes);
    }
}

TEST(CkJsonObject, StringOf_GivesBytesThatAreNoUtf8AsTheyWereAppended) {
    CkJsonObject object;
    object.AppendString("CKA_ID", "\xFF\x01\x80");
    EXPECT_EQ(object.stringOf("CKA_ID"), "\xFF\x01\x80");
}

TEST(CkJsonObject, Append_AddsAMemberOfANameThatIsThereAlready) {
    CkJsonObject object;
    object.AppendInt("status_cd", 1);
    object.AppendInt("status_cd", 0);
    EXPECT_EQ(object.emit(), R"({"status_cd":1,"status_cd":0})");
    EXPECT_EQ(object.IntOf("status_cd"), 1) << "the first counts";
    EXPECT_EQ(Loaded(R"({"a":"first","a":"second"})").stringOf("a"), "first");
}

TEST(CkJsonObject, Load_KeepsTheOrderOfMembers) {
    const CkJsonObject object =
        Loaded(R"( { "z" : 1 , "a" : [ 1 , { "y" : null , "b" : [ ] } ] , "m" : { } } )");
    EXPECT_EQ(object.emit(), R"({"z":1,"a":[1,{"y":null,"b":[]}],"m":{}})");
}

TEST(CkJsonObject, IndexOf_IsThePositionOfTheMemberOrMinusOne) {
    const CkJsonObject object = Loaded(R"({"z":0,"a":null,"":1})");
    EXPECT_EQ(object.IndexOf("z"), 0);
    EXPECT_EQ(object.IndexOf("a"), 1);
    EXPECT_EQ(object.IndexOf(""), 2);
    EXPECT_EQ(object.IndexOf("Z"), -1) << "names are case-sensitive";
    EXPECT_EQ(object.IndexOf("za"), -1);
    EXPECT_EQ(CkJsonObject().IndexOf("a"), -1);
}

TEST(CkJsonObject, StringOf_GivesTheTextOfAStringAndTheJsonOfEverythingElse) {
    const struct {
        const char* rule;
        const char* json;
        const char* text;
    } cases[] = {
        {"a string is its text", R"("q\"\/\u0041\u00e9\ud83d\ude00\n")", "q\"/Aé\xF0\x9F\x98\x80\n"},
        {"an empty string", R"("")", ""},
        {"a number", "17", "17"},
        {"a negative number", "-5", "-5"},
        {"a fraction as it is written", "1.50", "1.50"},
        {"an exponent as it is written", "2e3", "2e3"},
        {"true", "true", "true"},
        {"false", "false", "false"},
        {"null", "null", "null"},
        {"a number of any length", "123456789012345678901234567890", "123456789012345678901234567890"},
        {"an object, compact", "{ \"b\": [ 1 , 2.0, \"x/\\u00e9\\n\" ], \"a\": {} }",
         "{\"b\":[1,2.0,\"x/é\\n\"],\"a\":{}}"},
        {"an array, compact", "[ [], [ {} , [ ] ], true ]", "[[],[{},[]],true]"},
        {"strings that end in brackets are kept apart", R"(["[","{",":",",",{"[":"{","k":":"}])",
         R"(["[","{",":",",",{"[":"{","k":":"}])"},
    };
    for (const auto& it : cases) {
        const CkJsonObject object =
            Loaded(std::string(R"({"before":1, "m" : )") + it.json + R"( , "after":[]})");
        EXPECT_EQ(object.stringOf("m"), it.text) << it.rule;
        EXPECT_EQ(object.stringOf("missing"), "") << it.rule;
    }
}

TEST(CkJsonObject, StringOf_EndsAtTheFirstZeroCharacter) {
    EXPECT_EQ(Loaded(R"({"a":"ab\u0000cd"})").stringOf("a"), "ab");
    CkJsonObject object;
    object.AppendString("a", "ab\0cd"s);
    EXPECT_EQ(object.emit(), R"({"a":"ab"})");
}

TEST(CkJsonObject, TakeString_TakesTheTextOutOfTheMember) {
    CkJsonObject object = Loaded(R"({"a":"one","n":12.5,"z":"up to\u0000here"})");
    EXPECT_EQ(object.TakeString("a"), "one");
    EXPECT_EQ(object.TakeString("a"), "");
    EXPECT_EQ(object.TakeString("n"), "12.5");
    EXPECT_EQ(object.TakeString("z"), "up to");
    EXPECT_EQ(object.TakeString("missing"), "");
    EXPECT_EQ(object.emit(), R"({"a":"","n":"","z":""})");
}

TEST(CkJsonObject, StringOf_LongAndShortTextsInAnyOrder_AreEachTheirOwn) {
    const std::string one(1000, '1'), two(100'000, '2'), three = "3", four(60'000, '4');
    const CkJsonObject object = Loaded(R"({"a":")" + one + R"(","b":")" + two + R"(","":")" + three +
                                       R"(","d":{"x":")" + one + R"("},"c":")" + four + R"("})");
    EXPECT_EQ(object.stringOf("a"), one);
    EXPECT_EQ(object.stringOf("b"), two);
    EXPECT_EQ(object.stringOf(""), three);
    EXPECT_EQ(object.stringOf("d"), R"({"x":")" + one + R"("})");
    EXPECT_EQ(object.stringOf("c"), four);
}

TEST(CkJsonObject, IntOf_GivesTheNumberThatAMemberIs) {
    const struct {
        const char* rule;
        const char* json;
        int number;
    } cases[] = {
        {"a fraction is dropped", "1.9", 1},
        {"towards zero", "-1.9", -1},
        {"with an exponent", "2e2", 200},
        {"far below one", "1e-400", 0},
        {"zero", "0", 0},
        {"above the range it is the nearest int", "2147483648", INT_MAX},
        {"below the range", "-2147483649", INT_MIN},
        {"far above the range", "1e300", INT_MAX},
        {"far below the range", "-1e300", INT_MIN},
        {"above 64 bits", "18446744073709551616", INT_MAX},
        {"a string above the range", R"("99999999999")", INT_MAX},
        {"a string below the range", R"("-99999999999")", INT_MIN},
        {"a string is the decimal number that it is", R"("17")", 17},
        {"a string with a fraction", R"("-3.9")", -3},
        {"a string that only begins as a number", R"("12 apples")", 0},
        {"an empty string", R"("")", 0},
        {"a string that is no number", R"("x1")", 0},
        {"infinity in a string", R"("inf")", 0},
        {"hexadecimal digits", R"("0x10")", 0},
        {"no number at all", R"("nan")", 0},
        {"true", "true", 1},
        {"false", "false", 0},
        {"null", "null", 0},
        {"an object", R"({"a":1})", 0},
        {"an array", "[1]", 0},
    };
    for (const auto& it : cases)
        EXPECT_EQ(Loaded(std::string(R"({"m":)") + it.json + "}").IntOf("m"), it.number) << it.rule;
    EXPECT_EQ(Loaded(R"({"t":true})").IntOf("missing"), 0);
    CkJsonObject appended;
    appended.AppendBool("t", true);
    EXPECT_EQ(appended.IntOf("t"), 1);
}

TEST(CkJsonObject, Load_RefusesWhatIsNoObjectAndSaysSo) {
    for (const char* json : {"[]", "[{}]", "\"text\"", "1", "-1.5", "true", "null"}) {
        CkJsonObject object;
        EXPECT_FALSE(object.Load(json)) << json;
        EXPECT_EQ(object.lastErrorText(), "the JSON text holds no object") << json;
    }
}

TEST(CkJsonObject, Load_TellsThePositionOfASyntaxError) {
    CkJsonObject object;
    EXPECT_FALSE(object.Load("{\n \"a\": hello}"));
    EXPECT_NE(object.lastErrorText().find("line 2, column 7"), std::string::npos) << object.lastErrorText();
}

TEST(CkJsonObject, Load_RefusesBrokenTexts) {
    for (const std::string& json :
         {""s, " "s, "hello"s, "{"s, "{\"a\"}"s, "{\"a\":}"s, "{\"a\":1,}"s, "{a:1}"s, "{} x"s, "{}{}"s,
          "{\"a\":01}"s, "{\"a\":\"\n\"}"s, "{\"a\":\"\\x\"}"s, "{\"a\":\"\\ud800\"}"s, "{\"a\":1e999}"s,
          "{\"a\":[1}"s, "\0{}"s, "{\"a\":\"\0\"}"s, "{/* comment */}"s}) {
        CkJsonObject object;
        EXPECT_FALSE(object.Load(json)) << json;
        EXPECT_FALSE(object.lastErrorText().empty()) << json;
    }
}

TEST(CkJsonObject, Load_RefusesInvalidUtf8) {
    for (const std::string& bytes :
         {"\xFF"s, "\x80"s, "\xC3"s, "\xC0\xAF"s, "\xED\xA0\x80"s, "\xF4\x90\x80\x80"s, "\xE2\x82"s}) {
        CkJsonObject object;
        EXPECT_FALSE(object.Load("{\"a\":\"" + bytes + "\"}")) << ToHex(bytes);
        EXPECT_FALSE(object.Load("{\"" + bytes + "\":1}")) << ToHex(bytes);
        EXPECT_TRUE(IsUtf8(object.lastErrorText())) << ToHex(object.lastErrorText());
    }
}

TEST(CkJsonObject, Load_AFailedOneLeavesTheObjectEmpty) {
    CkJsonObject object = Loaded(R"({"a":1})");
    EXPECT_FALSE(object.Load(R"({"b":1,"c":)"));
    EXPECT_EQ(object.emit(), "{}");
    EXPECT_TRUE(object.Load("{}"));
    EXPECT_EQ(object.lastErrorText(), "");
}

TEST(CkJsonObject, Load_ReplacesWhatWasThere) {
    CkJsonObject object = Loaded(R"({"a":1})");
    ASSERT_TRUE(object.Load(R"({"b":2})"));
    EXPECT_EQ(object.emit(), R"({"b":2})");
}

TEST(CkJsonObject, Copies_AreIndependent) {
    CkJsonObject object = Loaded(R"({"a":1})");
    CkJsonObject copy = object;
    copy.AppendInt("b", 2);
    EXPECT_EQ(object.emit(), R"({"a":1})");
    object = copy;
    copy.AppendInt("c", 3);
    EXPECT_EQ(object.emit(), R"({"a":1,"b":2})");
    const CkJsonObject moved = std::move(copy);
    EXPECT_EQ(moved.emit(), R"({"a":1,"b":2,"c":3})");
    object = *&object;
    EXPECT_EQ(object.emit(), R"({"a":1,"b":2})");
}

TEST(CkJsonObject, AReplyThatHoldsJson_ArrivesAsAnEscapedString) {
    CkJsonObject record;
    record.AppendString("CN", "A \"B\"");
    CkJsonObject reply;
    reply.AppendString("result", record.emit());
    EXPECT_EQ(reply.emit(), R"({"result":"{\"CN\":\"A \\\"B\\\"\"}"})");
    EXPECT_EQ(Loaded(reply.emit()).stringOf("result"), record.emit());
}

} // namespace
