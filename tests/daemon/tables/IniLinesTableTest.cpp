// Which lines of a file the editor takes for the key, and what becomes of the
// others. Every row: file before, key, value, whole file afterwards.
#include "Daemon.h"
#include "QuorinINI.h"

namespace
{

constexpr char kFile[] = "/usr/velarix/bin/log/lines.txt";

struct Row
{
	const char* name;
	std::string before;
	const char* key;
	const char* value;
	std::string after;
};

/// A text with NUL bytes in it.
template <std::size_t N> std::string bytes(const char (&literal)[N])
{
	return std::string(literal, N - 1);
}

std::string many(std::size_t count, char c)
{
	return std::string(count, c);
}

class IniLines : public DaemonTest, public testing::WithParamInterface<Row>
{
};

TEST_P(IniLines, AreReplacedOrKept)
{
	const Row& row = GetParam();
	sandbox::writeFile(kFile, row.before);
	initialization editor;
	editor.loadFile(kFile);
	EXPECT_TRUE(editor.changeINI(row.key, row.value));
	EXPECT_EQ(sandbox::readFile(kFile), row.after);
	EXPECT_THAT(events::all(), IsEmpty());
}

// clang-format off
const Row kForms[] = {
    // name                           before                                  key     value     after
    {"KeyAndEquals",                  "[T]\nK=1\n",                           "T.K",  "2",      "[T]\nK = 2\n"},
    {"KeyBlankEqualsBlank",           "[T]\nK = 1\n",                         "T.K",  "2",      "[T]\nK = 2\n"},
    {"KeyAndManyBlanks",              "[T]\nK    =    1\n",                   "T.K",  "2",      "[T]\nK = 2\n"},
    {"KeyAndBlankAlone",              "[T]\nK 1\n",                           "T.K",  "2",      "[T]\nK = 2\n"},
    {"KeyWithoutAValue",              "[T]\nK=\n",                            "T.K",  "2",      "[T]\nK = 2\n"},
    {"KeyWithTwoEquals",              "[T]\nK==1\n",                          "T.K",  "2",      "[T]\nK = 2\n"},
    {"CommentOnTheLineIsLost",        "[T]\nK = 1 ; why\n",                   "T.K",  "2",      "[T]\nK = 2\n"},
    {"CarriageReturnOnTheLineIsLost", "[T]\r\nK=1\r\nL=1\r\n",                "T.K",  "2",      "[T]\r\nK = 2\nL=1\r\n"},
    {"LastLineWithoutNewline",        "[T]\nK=1",                             "T.K",  "2",      "[T]\nK = 2\n"},
    {"BareKeyAsLastLine",             "[T]\nK",                               "T.K",  "2",      "[T]\nK = 2\n"},
    {"BareKeyAndNewlineIsNoMatch",    "[T]\nK\n",                             "T.K",  "2",      "[T]\nK\n"},
    {"BareKeyAndReturnIsNoMatch",     "[T]\nK\r\n",                           "T.K",  "2",      "[T]\nK\r\n"},
    {"LeadingBlankIsNoMatch",         "[T]\n K=1\n",                          "T.K",  "2",      "[T]\n K=1\n"},
    {"LeadingTabIsNoMatch",           "[T]\n\tK=1\n",                         "T.K",  "2",      "[T]\n\tK=1\n"},
    {"TabBeforeEqualsIsNoMatch",      "[T]\nK\t=1\n",                         "T.K",  "2",      "[T]\nK\t=1\n"},
    {"TabAfterABlankIsAMatch",        "[T]\nK \t=1\n",                        "T.K",  "2",      "[T]\nK = 2\n"},
    {"CommentedLineIsNoMatch",        "[T]\n;K=1\n#K=1\n",                    "T.K",  "2",      "[T]\n;K=1\n#K=1\n"},
    {"LongerKeyIsNoMatch",            "[T]\nK_X=1\n",                         "T.K",  "2",      "[T]\nK_X=1\n"},
    {"ShorterKeyIsNoMatch",           "[T]\nK=1\n",                           "T.KX", "2",      "[T]\nK=1\n"},
    {"LongerThenShorterKey",          "[T]\nK_X=1\nK=1\n",                    "T.K",  "2",      "[T]\nK_X=1\nK = 2\n"},
    {"OtherCaseOfTheKeyIsNoMatch",    "[T]\nk=1\n",                           "T.K",  "2",      "[T]\nk=1\n"},
    {"KeyBeyondAscii",                "[T]\nSchl\303\274ssel=1\n",            "T.Schl\303\274ssel", "2", "[T]\nSchl\303\274ssel = 2\n"},
    {"EveryDuplicateIsReplaced",      "[T]\nK=1\nL=1\nK 3\n",                 "T.K",  "2",      "[T]\nK = 2\nL=1\nK = 2\n"},
    {"EmptyLinesAreKept",             "\n\n[T]\n\nK=1\n\n\n",                 "T.K",  "2",      "\n\n[T]\n\nK = 2\n\n\n"},
    {"OtherLinesKeepTheirSpacing",    "[T]\n  A  =  1  \nK=1\nB\t=\t2 ; b",   "T.K",  "2",      "[T]\n  A  =  1  \nK = 2\nB\t=\t2 ; b"},
    {"EmptyFile",                     "",                                     "T.K",  "2",      ""},
    {"AbsentKey",                     "[T]\nL = 1\n[U]\nK=1\n",               "T.K",  "2",      "[T]\nL = 1\n[U]\nK=1\n"},
    {"AbsentSection",                 "[U]\nK=1",                             "T.K",  "2",      "[U]\nK=1"},
    {"EmptyValue",                    "[T]\nK=1\n",                           "T.K",  "",       "[T]\nK = \n"},
    {"ValueWithBlanksAndEquals",      "[T]\nK=1\n",                           "T.K",  " a = b ", "[T]\nK =  a = b \n"},
    {"ValueWithPercentSigns",         "[T]\nK=1\n",                           "T.K",  "%s%n%d", "[T]\nK = %s%n%d\n"},
    {"ValueWithABackslash",           "[T]\nK=1\n",                           "T.K",  "a\\n",   "[T]\nK = a\\n\n"},
    {"StartTimeOfTheRecord",          "[TRACE]\nLAST_RUN_TIME=1\nX = 5\n",    "TRACE.LAST_RUN_TIME", "2", "[TRACE]\nLAST_RUN_TIME = 2\nX = 5\n"},
    {"StartTimeIsNoPrefix",           "[TRACE]\nLAST_RUN_TIME_X=1\n",         "TRACE.LAST_RUN_TIME", "2", "[TRACE]\nLAST_RUN_TIME_X=1\n"},
};

const Row kSections[] = {
    // name                           before                                  key     value     after
    {"OtherSectionsAreLeftAlone",     "[S]\nK=1\n[T]\nK=1\n[U]\nK=1\n",       "T.K",  "2",      "[S]\nK=1\n[T]\nK = 2\n[U]\nK=1\n"},
    {"ASectionThatComesTwice",        "[T]\nK=1\n[U]\nK=1\n[T]\nK=3\n",       "T.K",  "2",      "[T]\nK = 2\n[U]\nK=1\n[T]\nK = 2\n"},
    {"LinesBeforeTheFirstHeader",     "K=1\n[T]\nK=1\n",                      "T.K",  "2",      "K=1\n[T]\nK = 2\n"},
    {"OtherCaseOfTheSection",         "[t]\nK=1\n",                           "T.K",  "2",      "[t]\nK=1\n"},
    {"SectionThatIsLonger",           "[TX]\nK=1\n",                          "T.K",  "2",      "[TX]\nK=1\n"},
    {"SectionThatIsShorter",          "[T]\nK=1\n",                           "TX.K", "2",      "[T]\nK=1\n"},
    {"TextBehindTheHeader",           "[T] ; the section\nK=1\n",             "T.K",  "2",      "[T] ; the section\nK = 2\n"},
    {"SectionWithATilde",             "[T~]\nK=1\n",                          "T.K",  "2",      "[T~]\nK=1\n"},
    {"BlanksInsideTheBrackets",       "[ T ]\nK=1\n",                         "T.K",  "2",      "[ T ]\nK=1\n"},
    {"TheFirstClosingBracketCounts",  "[T]]\nK=1\n",                          "T.K",  "2",      "[T]]\nK = 2\n"},
    {"ASecondOpeningBracket",         "[[T]\nK=1\n",                          "T.K",  "2",      "[[T]\nK=1\n"},
    {"HeaderThatIsNotClosed",         "[T\nK=1\n",                            "T.K",  "2",      "[T\nK=1\n"},
    {"UnclosedHeaderEndsTheSection",  "[T]\n[U\nK=1\n",                       "T.K",  "2",      "[T]\n[U\nK=1\n"},
    {"IndentedHeaderIsAnOrdinaryLine", "[T]\n [U]\nK=1\n",                    "T.K",  "2",      "[T]\n [U]\nK = 2\n"},
    {"IndentedHeaderOpensNothing",    " [T]\nK=1\n",                          "T.K",  "2",      " [T]\nK=1\n"},
    {"SectionWithoutAName",           "[]\nK=1\n[T]\nK=1\n",                  ".K",   "2",      "[]\nK = 2\n[T]\nK=1\n"},
    {"TwoDotsJoinTheKey",             "[A]\nBC=1\nB.C=1\n[A.B]\nC=1\n",       "A.B.C", "2",     "[A]\nBC = 2\nB.C=1\n[A.B]\nC=1\n"},
    {"TwoDotsInARow",                 "[A]\nB=1\n",                           "A..B", "2",      "[A]\nB = 2\n"},
    {"DotAtTheEndLeavesNoKeyName",    "[T]\n=1\nK=1\n",                       "T.",   "2",      "[T]\n = 2\nK=1\n"},
    {"NoDotLeavesNoKeyName",          "[T]\n x\n\nK=1\n",                     "T",    "2",      "[T]\n = 2\n\nK=1\n"},
    {"EmptyKeyMeetsTheEmptyNames",    "[]\n=1\n[T]\n=1\n",                    "",     "2",      "[]\n = 2\n[T]\n=1\n"},
    // On a header line the work buffer holds the section name when the line's own
    // front is copied over it; "[AB CD]" leaves "[AB" + "CD".
    {"HeaderWithABlankLeavesItsTail", "[AB CD]\nX=1\n",                       "AB CD.[ABCD", "2", "[ABCD = 2\nX=1\n"},
    {"HeaderWithEqualsLeavesItsTail", "[T=UV]\nX=1\n",                        "T=UV.[TUV", "2", "[TUV = 2\nX=1\n"},
    {"HeaderFrontAloneIsNoMatch",     "[AB CD]\nX=1\n",                       "AB CD.[AB", "2", "[AB CD]\nX=1\n"},
    {"EveryHeaderLeavesItsTail",      "[A BC]\nX=1\n[A BC]\n",                "A BC.[ABC", "2", "[ABC = 2\nX=1\n[ABC = 2\n"},
    {"OrdinaryLineLeavesNoTail",      "[T]\nKLMN=1\nK=1\nKL=1\n",             "T.KLMN", "2",    "[T]\nKLMN = 2\nK=1\nKL=1\n"},
    {"HeaderAsTheLastLine",           "[T]",                                  "T.[T]", "2",     "[T] = 2\n"},
    {"HeaderAndNewlineIsNoMatch",     "[T]\n",                                "T.[T]", "2",     "[T]\n"},
};

const Row kSizes[] = {
    // name                           before                                              key    value  after
    {"LineOf198AndNewlineIsOne",      "[T]\nK=" + many(196, 'v') + "\nL=1\n",             "T.K", "2",   "[T]\nK = 2\nL=1\n"},
    {"LineOf199LeavesItsNewline",     "[T]\nK=" + many(197, 'v') + "\nL=1\n",             "T.K", "2",   "[T]\nK = 2\n\nL=1\n"},
    {"LineOf200LeavesOneCharacter",   "[T]\nK=" + many(198, 'v') + "\nL=1\n",             "T.K", "2",   "[T]\nK = 2\nv\nL=1\n"},
    {"LineOf302LeavesItsRest",        "[T]\nK=" + many(300, 'v') + "\nL=1\n",             "T.K", "2",   "[T]\nK = 2\n" + many(103, 'v') + "\nL=1\n"},
    {"SecondPieceIsALineOfItsOwn",    "[T]\n" + many(199, 'x') + "K=1\n",                 "T.K", "2",   "[T]\n" + many(199, 'x') + "K = 2\n"},
    {"ThirdPieceIsALineOfItsOwn",     "[T]\n" + many(398, 'x') + "K=1\n",                 "T.K", "2",   "[T]\n" + many(398, 'x') + "K = 2\n"},
    {"OnePieceEarlierIsNoMatch",      "[T]\n" + many(198, 'x') + "K=1\n",                 "T.K", "2",   "[T]\n" + many(198, 'x') + "K=1\n"},
    {"OnePieceLaterIsNoMatch",        "[T]\n" + many(200, 'x') + "K=1\n",                 "T.K", "2",   "[T]\n" + many(200, 'x') + "K=1\n"},
    {"PieceThatIsAHeader",            "[T]\n" + many(199, 'x') + "[U]\nK=1\n",            "T.K", "2",   "[T]\n" + many(199, 'x') + "[U]\nK=1\n"},
    {"HeaderClosedInItsSecondPiece",  "[" + many(198, 'S') + "]\n[T]\nK=1\n",             "T.K", "2",   "[" + many(198, 'S') + "]\n[T]\nK = 2\n"},
    {"LongLineWithoutNewline",        "[T]\nK=1\n" + many(5000, 'y'),                     "T.K", "2",   "[T]\nK = 2\n" + many(5000, 'y')},
    {"FileThatGrowsBeyond999",        "[T]\nK=1\n" + many(990, '\n'),                     "T.K", "2",   "[T]\nK = 2\n" + many(990, '\n')},
    {"FileOf20000",                   many(10000, '\n') + "[T]\nK=1\n" + many(10000, '\n'), "T.K", "2", many(10000, '\n') + "[T]\nK = 2\n" + many(10000, '\n')},
    {"NulInAnotherLine",              bytes("[T]\nA=1\0B\nK=1\n"),                        "T.K", "2",   bytes("[T]\nA=1\0B\nK = 2\n")},
    {"NulAtTheBeginningOfALine",      bytes("[T]\n\0K=1\nK=1\n"),                         "T.K", "2",   bytes("[T]\n\0K=1\nK = 2\n")},
    {"NulInTheValueGoesWithTheLine",  bytes("[T]\nK=1\0\0zz\nL=1\n"),                     "T.K", "2",   "[T]\nK = 2\nL=1\n"},
    {"NulEndsTheKeyName",             bytes("[T]\nK\0x=1\n"),                             "T.K", "2",   "[T]\nK = 2\n"},
    {"NulEndsTheSectionName",         bytes("[T\0x]\nK=1\n"),                             "T.K", "2",   bytes("[T\0x]\nK = 2\n")},
    {"NulAtTheEndOfTheFile",          bytes("[T]\nK=1\n\0"),                              "T.K", "2",   bytes("[T]\nK = 2\n\0")},
    {"HighBytesInAnotherLine",        "[T]\nA=\377\376\200\nK=1\n",                       "T.K", "2",   "[T]\nA=\377\376\200\nK = 2\n"},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Forms, IniLines, testing::ValuesIn(kForms), rowName<Row>);
INSTANTIATE_TEST_SUITE_P(Sections, IniLines, testing::ValuesIn(kSections), rowName<Row>);
INSTANTIATE_TEST_SUITE_P(Sizes, IniLines, testing::ValuesIn(kSizes), rowName<Row>);

} // namespace
