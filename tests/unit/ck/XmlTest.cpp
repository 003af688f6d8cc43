#include "ck/CkXml.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

CkXml Loaded(std::string_view xml) {
    CkXml tree;
    EXPECT_TRUE(tree.LoadXml2(xml, true));
    return tree;
}

TEST(CkXml, ANewTree_IsOneEmptyElementThatPutTagNames) {
    CkXml tree;
    tree.put_Tag("sequence");
    EXPECT_EQ(tree.getXml(), "<sequence/>");
}

TEST(CkXml, UpdateChildContent_SetsTheElementAtThePathAndCreatesWhatIsMissing) {
    const struct {
        const char* rule;
        const char* before;
        const char* path;
        const char* content;
        const char* after;
    } cases[] = {
        {"every missing element is created", "<r/>", "a|b|c", "x", "<r><a><b><c>x</c></b></a></r>"},
        {"without an index it is the first", "<r><a/><a/></r>", "a", "x", "<r><a>x</a><a/></r>"},
        {"indices begin at 0", "<r><a/><a/></r>", "a[0]", "x", "<r><a>x</a><a/></r>"},
        {"others may stand between", "<r><a/><b/><a/></r>", "a[1]", "x", "<r><a/><b/><a>x</a></r>"},
        {"only elements of the name count", "<r><ab/><a/><ab/></r>", "ab[1]", "x",
         "<r><ab/><a/><ab>x</ab></r>"},
        {"a new element comes behind all others", "<r><set/><int>01</int></r>", "set[1]|oid", "1.2",
         "<r><set/><int>01</int><set><oid>1.2</oid></set></r>"},
        {"what is missing before an index is created", "<r/>", "a[2]", "x", "<r><a/><a/><a>x</a></r>"},
        {"so is the rest of the path", "<r><a>y</a></r>", "a[2]|b[1]", "x",
         "<r><a>y</a><a/><a><b/><b>x</b></a></r>"},
        {"content is replaced, attributes stay", "<r><a k=\"v\">old</a></r>", "a", "new",
         "<r><a k=\"v\">new</a></r>"},
        {"elements below stay", "<r><a>old<b/></a></r>", "a", "new", "<r><a>new<b/></a></r>"},
        {"without content it is only there", "<r/>", "a|null", "", "<r><a><null/></a></r>"},
        {"no content replaces content", "<r><a>old<b/></a></r>", "a", "", "<r><a><b/></a></r>"},
    };
    for (const auto& it : cases) {
        CkXml tree = Loaded(it.before);
        tree.UpdateChildContent(it.path, it.content);
        EXPECT_EQ(tree.getXml(), it.after) << it.rule;
    }
}

TEST(CkXml, UpdateChildContent_EscapesTheContent) {
    CkXml tree = Loaded("<r/>");
    tree.UpdateChildContent("a", "<&>\"'");
    EXPECT_EQ(Loaded(tree.getXml()).getChildContent("a"), "<&>\"'");
}

TEST(CkXml, UpdateChildContent_EndsTheContentAtAZeroByte) {
    CkXml tree = Loaded("<r/>");
    tree.UpdateChildContent("a", "ab\0cd"s);
    EXPECT_EQ(tree.getChildContent("a"), "ab");
    EXPECT_EQ(tree.getXml(), "<r><a>ab</a></r>");
}

TEST(CkXml, AMalformedPath_ChangesNothingAndFindsNothing) {
    for (const char* path : {"", "|", "a|", "|a", "a||b", "a[", "a[]", "a[x]", "a[-1]", "a[1", "a[1]x", "[1]",
                             "a[ 1]", "a[0x1]", "a[1]]"}) {
        CkXml tree = Loaded("<r><a>1</a><a>2</a></r>");
        tree.UpdateChildContent(path, "x");
        EXPECT_FALSE(tree.UpdateAttrAt(path, true, "k", "v")) << path;
        EXPECT_EQ(tree.FindChild(path), nullptr) << path;
        EXPECT_EQ(tree.getChildContent(path), "") << path;
        EXPECT_EQ(tree.getXml(), "<r><a>1</a><a>2</a></r>") << path;
    }
}

TEST(CkXml, GetChildContent_GivesTheTextOrNothing) {
    const CkXml tree = Loaded("<r><a><b>1</b><b>2</b></a><c/></r>");
    EXPECT_EQ(tree.getChildContent("a|b"), "1");
    EXPECT_EQ(tree.getChildContent("a|b[1]"), "2");
    EXPECT_EQ(tree.getChildContent("a|b[2]"), "");
    EXPECT_EQ(tree.getChildContent("a"), "");
    EXPECT_EQ(tree.getChildContent("c"), "");
    EXPECT_EQ(tree.getChildContent("r"), "") << "paths begin at the children";
}

TEST(CkXml, UpdateAttrAt_CreatesThePathOnlyWhenAsked) {
    CkXml tree = Loaded("<r/>");
    EXPECT_FALSE(tree.UpdateAttrAt("a|b", false, "tag", "0"));
    EXPECT_EQ(tree.getXml(), "<r/>");
    EXPECT_TRUE(tree.UpdateAttrAt("a|b", true, "tag", "0"));
    EXPECT_TRUE(tree.UpdateAttrAt("a|b", false, "constructed", "1"));
    EXPECT_EQ(tree.getXml(), "<r><a><b tag=\"0\" constructed=\"1\"/></a></r>");
}

TEST(CkXml, UpdateAttrAt_ReplacesTheValueAndEscapesIt) {
    CkXml tree = Loaded("<r><a k=\"v\" l=\"w\"/></r>");
    EXPECT_TRUE(tree.UpdateAttrAt("a", true, "k", "<\"&"));
    EXPECT_EQ(tree.getXml(), "<r><a k=\"&lt;&quot;&amp;\" l=\"w\"/></r>");
}

TEST(CkXml, FindChild_SharesItsElementWithTheTree) {
    CkXml tree = Loaded("<r><a><b/></a></r>");
    const std::unique_ptr<CkXml> found = tree.FindChild("a|b");
    ASSERT_NE(found, nullptr);
    found->UpdateChildContent("c", "x");
    EXPECT_EQ(tree.getXml(), "<r><a><b><c>x</c></b></a></r>");
    EXPECT_EQ(found->getXml(), "<b><c>x</c></b>");
    EXPECT_EQ(tree.FindChild("a|x"), nullptr);
}

TEST(CkXml, FindChild_KeepsTheTreeAlive) {
    auto tree = std::make_unique<CkXml>(Loaded("<r><a>x</a></r>"));
    const std::unique_ptr<CkXml> found = tree->FindChild("a");
    tree.reset();
    EXPECT_EQ(found->getXml(), "<a>x</a>");
}

TEST(CkXml, AddChildTree_AppendsACopyAsTheLastChild) {
    CkXml tree = Loaded("<r><z/></r>");
    CkXml other = Loaded("<a k=\"v\"><b>x</b><b/></a>");
    tree.AddChildTree(other);
    other.UpdateChildContent("b", "changed");
    tree.AddChildTree(other);
    EXPECT_EQ(tree.getXml(), "<r><z/><a k=\"v\"><b>x</b><b/></a><a k=\"v\"><b>changed</b><b/></a></r>");
}

TEST(CkXml, AddChildTree_TakesItsOwnTree) {
    CkXml tree = Loaded("<r><a/></r>");
    tree.AddChildTree(tree);
    EXPECT_EQ(tree.getXml(), "<r><a/><r><a/></r></r>");
}

TEST(CkXml, LoadXml2_TrimsContentsWhenAsked) {
    CkXml tree;
    ASSERT_TRUE(tree.LoadXml2("<r>\n  <a>  x y \n</a> <b>   </b>\n</r>", true));
    EXPECT_EQ(tree.getXml(), "<r><a>x y</a><b/></r>");
    ASSERT_TRUE(tree.LoadXml2("<r>\n  <a>  x y \n</a> <b>   </b>\n</r>", false));
    EXPECT_EQ(tree.getChildContent("a"), "  x y \n");
    EXPECT_EQ(tree.getChildContent("b"), "   ");
}

TEST(CkXml, LoadXml2_TakesDeclarationsAndCommentsAroundTheElement) {
    EXPECT_EQ(Loaded("\xEF\xBB\xBF<?xml version=\"1.0\"?><!DOCTYPE r><!-- c -->\n<r/>\n<!-- c -->").getXml(),
              "<r/>");
}

TEST(CkXml, LoadXml2_RefusesWhatIsNotWellFormedAndLeavesOneEmptyElement) {
    for (const std::string& xml :
         {""s, " "s, "x"s, "<a>"s, "<a></b>"s, "<a/><b/>"s, "<a/>x"s, "x<a/>"s, "<a b=1/>"s, "<a b='1'"s,
          "</a>"s, "<!-- x -->"s, "<a>\0</a>"s, "<a/>\0"s, "<a/>&amp;"s}) {
        CkXml tree;
        ASSERT_TRUE(tree.LoadXml2("<r><a/></r>", true));
        EXPECT_FALSE(tree.LoadXml2(xml, true)) << xml;
        tree.put_Tag("x");
        EXPECT_EQ(tree.getXml(), "<x/>") << xml;
    }
}

TEST(CkXml, LoadXml2_LeavesElementsThatWereFoundBeforeAlone) {
    CkXml tree = Loaded("<r><a>x</a></r>");
    const std::unique_ptr<CkXml> found = tree.FindChild("a");
    ASSERT_TRUE(tree.LoadXml2("<s/>", true));
    EXPECT_EQ(found->getXml(), "<a>x</a>");
    EXPECT_EQ(tree.getXml(), "<s/>");
}

TEST(CkXml, GetXml_OfAnElementWithContentOf32MiB_GivesItBack) {
    const std::string content(32 * 1024 * 1024, 'A');
    CkXml tree = Loaded("<r/>");
    tree.UpdateChildContent("octets", content);
    EXPECT_TRUE(tree.getXml() == "<r><octets>" + content + "</octets></r>");
    EXPECT_TRUE(Loaded(tree.getXml()).getChildContent("octets") == content);
}

} // namespace
