class Unbulk < Formula
  desc "Developer-aware disk cleaner with Trash-first removal and an audit log"
  homepage "https://github.com/unbulk/unbulk"
  url "https://github.com/unbulk/unbulk/archive/refs/tags/v1.0.0.tar.gz"
  sha256 "0000000000000000000000000000000000000000000000000000000000000000"
  license "MIT"
  head "https://github.com/unbulk/unbulk.git", branch: "main"

  depends_on "cmake" => :build
  depends_on "googletest" => :build
  depends_on "ninja" => :build
  depends_on "nlohmann-json" => :build
  depends_on "pkg-config" => :build
  depends_on "tmux" => :build # the tests of review and explore run them in a tmux window
  depends_on :macos
  depends_on "fmt"
  depends_on "libplist"
  depends_on "tbb"
  depends_on "utf8proc"

  def install
    system "cmake", "-S", ".", "-B", "build", "-G", "Ninja", "-DUNBULK_BUILD_BENCH=OFF", *std_cmake_args
    system "cmake", "--build", "build"
    system "ctest", "--test-dir", "build", "--output-on-failure", "--exclude-regex", "McpSdkClient"
    system "cmake", "--install", "build"
  end

  test do
    assert_match "Unbulk: High-performance", shell_output("#{bin}/unbulk --help")
    (testpath/"tree/file").write "x"
    assert_match "Total Size:", shell_output("#{bin}/unbulk spacelens --path #{testpath}/tree")
  end
end
