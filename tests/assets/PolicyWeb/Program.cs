using Microsoft.AspNetCore.Builder;

namespace PolicyWeb
{
    public static class Program
    {
        public static void Main(string[] args)
        {
            WebApplication app = WebApplication.CreateBuilder(args).Build();
            app.Run();
        }
    }
}
